// What the back ends know of the items of a run, wherever they keep them. Pure: values alone.
#pragma once

#include <cstdint>
#include <string>

#include "base/api.h"
#include "json_spirit/json_spirit.h"
#include "record/sourcerecord.h"

namespace dorvo {

// The unit in which packages travel.
constexpr uint32_t uploadBlockSize = 131072;

// A package of so many bytes that comes back has no file of its own: it is asked for whole.
constexpr bool fitsInMemory(uint64_t package) {
    return package <= uploadBlockSize;
}

// The nine numbers that the platform keeps of a file or directory.
struct ItemAttributes {
    uint32_t attributes = 0;
    uint32_t sizeHigh = 0;
    uint32_t sizeLow = 0;
    uint32_t creationHigh = 0;
    uint32_t creationLow = 0;
    uint32_t lastAccessHigh = 0;
    uint32_t lastAccessLow = 0;
    uint32_t lastWriteHigh = 0;
    uint32_t lastWriteLow = 0;

    bool directory() const { return (attributes & directoryAttribute) != 0; }
};

// What the walk over all sources counted, whether it has to be sent or not.
struct SourceTotals {
    uint32_t directories = 0;
    uint32_t files = 0;
    uint64_t size = 0;

    bool operator==(const SourceTotals&) const = default;
};

struct FailedItem {
    std::string path;
    uint32_t code = 0;
    std::string reason;
};

// As a run's ".errors" document has it. Anything but a record counts as empty: the document may
// have been edited.
DORVO_JOB_API FailedItem readFailedItem(const json_spirit::Value& value);

// A path as the back ends keep it: UTF-8 with backslashes, none at its end.
std::string withoutTrailingBackslash(std::string path);

}  // namespace dorvo
