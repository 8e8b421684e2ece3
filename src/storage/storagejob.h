// What a storage is told of the job that it works for, whatever the job does and wherever it keeps
// its backups.
#pragma once

#include <windows.h>

#include <array>
#include <cstdint>
#include <functional>
#include <string>

#include "record/jobactivity.h"
#include "storage/faileditems.h"

namespace dorvo {

struct StorageJob {
    std::string jobId;
    std::string jobName;
    std::array<uint8_t, 16> key{};
    std::array<uint8_t, 16> iv{};
    JobActivity* activity = nullptr;  // borrowed; null: start() fails, or everything
    FailedItems* failed = nullptr;    // borrowed
    HANDLE stop = nullptr;            // manual-reset event, borrowed
    // Called when the record has changed in a way that whoever shows the job wants to see; may be
    // empty.
    std::function<void()> changed = {};
};

}  // namespace dorvo
