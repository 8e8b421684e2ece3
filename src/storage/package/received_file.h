// The file that is being received; one in the process, for one thread at a time.
#pragma once

#include <windows.h>

#include <cstdint>

#include "base/handle.h"

namespace dorvo {

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

}  // namespace dorvo
