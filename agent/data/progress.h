// How far a run is, as a line of text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "json_spirit/json_spirit.h"
#include "record/jobactivity.h"

namespace dorvo::agent {

struct Progress {
    int percent = 0;
    uint64_t files = 0;  // finished
    uint64_t fileCount = 0;
    uint64_t bytes = 0;  // finished, what is done of the current file included
    uint64_t totalBytes = 0;
    uint64_t bytesPerSecond = 0;
    std::optional<uint64_t> secondsLeft;  // not known before anything has moved
    std::string file;                     // the current one, UTF-8

    bool operator==(const Progress&) const = default;
};

Progress progressOf(const JobActivity& record);

// A number, or null where it is not known.
json_spirit::Ordered_value secondsLeftJson(const Progress& progress);

// " 42%  12/120 files  1.2 MiB of 3.4 GiB  12.3 MiB/s  0:42 left  C:\data\...\name.txt", at most
// `width` columns, of which the current file gets what is left over.
std::string progressLine(const Progress& progress, size_t width);

}  // namespace dorvo::agent
