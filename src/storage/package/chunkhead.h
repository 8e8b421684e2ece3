// What all package heads have in common.
//
// Heads, the key and the file being received are for one thread at a time in the whole process.
// The format is docs/formats/package-stream.md.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <span>

#include "base/api.h"
#include "storage/package/package_wire.h"

namespace dorvo {

class HTTP_Invoker_T;
struct Memory_Piece;

// Reads and writes where the tail of a package lies. Borrows the chunk_address; copies share it.
//
// Everything else needs an address first.
class DORVO_JOB_API addresshead {
public:
    // Attaches and clears offset and length.
    void init(chunk_address* address);
    // Attaches only.
    void set(chunk_address* address);
    void set_address_head(uint16_t offset, uint16_t length);

    uint16_t get_offset() const;
    uint16_t get_length() const;
    // The tail of the package that begins at `base`.
    void get_content(uint8_t* base, uint8_t** out) const;

private:
    chunk_address* address_ = nullptr;  // borrowed, may stand at any address
};

class DORVO_JOB_API chunkhead {
public:
    // The order of the virtual operations is part of the interface; the destructor comes last.

    // Consumes one received package that is as long as it says; here it does nothing. A package
    // that contradicts itself, or is of another kind, gives false with error 13 and touches
    // nothing.
    virtual bool handle_head(uint8_t* package);
    // Lets the copy go and gives true: the heads send through an invoker of the caller's.
    virtual bool send_package(HTTP_Invoker_T invoker);
    virtual ~chunkhead() = default;

    chunkhead() = default;
    chunkhead(const chunkhead&) = default;
    chunkhead& operator=(const chunkhead&) = default;

    // The package at the front of what has come; refuses one that is not there as a whole.
    bool handle_head(std::span<uint8_t> received);

protected:
    // False, with error 13 and a line logged.
    static bool refuse(const char* fault);
    // As one chunk or as plain body bytes. What becomes of them is the invoker's to tell.
    static void send_gathered(HTTP_Invoker_T& invoker, std::initializer_list<Memory_Piece> pieces);
};

}  // namespace dorvo
