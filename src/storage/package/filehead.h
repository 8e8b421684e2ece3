// The package that begins a file, or that is a directory: attributes, size, times and name.
//
// Sender: init, set, send_package, uninit. Receiver: handle_head. Everything but init, handle_head
// and the attaching calls needs a head first.
#pragma once

#include <windows.h>

#include <cstdint>
#include <memory>

#include "base/handle.h"
#include "storage/package/chunkhead.h"

namespace dorvo {

// The file that is being received; one in the process, for one thread at a time.
struct received_file {
    uint32_t attributes = 0;
    FILETIME creation{};
    FILETIME last_access{};
    FILETIME last_write{};
    uint32_t size_high = 0;
    uint32_t size_low = 0;
    FileHandle file;

    // Clears everything. The file is forgotten, not closed.
    void forget();
};

received_file& current_received_file();

class DORVO_JOB_API filehead : public chunkhead {
public:
    filehead() = default;
    // Attaches to a package of the caller's, as set does.
    explicit filehead(uint8_t* package);
    // Copies share head and name.
    filehead(const filehead&) = default;
    filehead& operator=(const filehead&) = default;

    // Makes a head of its own, with a fresh UUID over its first 16 bytes.
    void init();
    // Gives head and name up.
    void uninit();
    // Times are FILETIMEs; the name is UTF-8 without an end, null only when its length is 0.
    bool set(uint32_t attributes, uint64_t size, uint64_t last_write, uint64_t last_access,
             uint64_t creation, const uint8_t* name, uint16_t name_length);
    // Borrows a package. True.
    bool set(uint8_t* package);

    // Into an open request body. Always true: the invoker logs and keeps what goes wrong.
    // The base's takes a copy, which sends nothing; this one is called instead of it, not through
    // it.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Woverloaded-virtual"
    bool send_package(HTTP_Invoker_T& invoker);
#pragma GCC diagnostic pop

    using chunkhead::handle_head;
    // Attributes of exactly 16 make a directory, whatever else is there or goes wrong. All others
    // open a file for the data packages that follow, and forget the one before without closing it.
    // True unless the package is refused.
    bool handle_head(uint8_t* package) override;

    uint32_t get_head_length() const;

private:
    // False, with the head unchanged, when the system gives none.
    bool createUUID();
    // To and from the file being received.
    void modify_file_attr() const;
    static void clear_file_attr();
    void attach(uint8_t* head);

    uint8_t* head_ = nullptr;  // of owned_head_, or borrowed
    std::shared_ptr<uint8_t[]> owned_head_;
    std::shared_ptr<uint8_t[]> name_;  // null without a name of its own
    addresshead address_;
};

}  // namespace dorvo
