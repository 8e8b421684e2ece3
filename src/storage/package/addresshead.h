// Reads and writes where the tail of a package lies. Borrows the chunk_address; copies share it.
//
// Everything else needs an address first.
#pragma once

#include <cstdint>

#include "base/api.h"
#include "storage/package/package_wire.h"

namespace dorvo {

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

}  // namespace dorvo
