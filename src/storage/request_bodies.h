// The JSON bodies of the requests to the web storage service.
//
// Pure: values in, values out. Paths are UTF-8 with backslashes and without a trailing one, which
// is how the service compares them.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "json_spirit/json_spirit.h"
#include "record/sourcerecord.h"

namespace dorvo {

// The unit in which packages travel.
constexpr uint32_t uploadBlockSize = 131072;

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

// One file that the service is asked about; the time is its last write, in 100-nanosecond units.
struct IncrementItem {
    std::string path;
    uint64_t lastWrite = 0;
};

// The number of blocks that the service is told: one more than the whole blocks of a file's
// package; of a directory only the whole ones.
uint32_t totalBlocks(uint64_t packageSize, bool directory);

// An empty time is sent as "unknown".
json_spirit::Value startJobBody(const std::string& definitionId, const std::string& instanceId,
                                const SourceTotals& totals, const std::string& startTime);
json_spirit::Value uploadFileBody(const std::string& instanceId, const std::string& path,
                                  const ItemAttributes& attributes, uint64_t packageSize);
json_spirit::Value submitErrorsBody(const std::string& instanceId,
                                    std::span<const FailedItem> errors);
json_spirit::Value endJobBody(const std::string& instanceId, const std::string& endTime);
json_spirit::Value stopJobBody(const std::string& instanceId);
// `first` begins the list anew: the service forgets what it was asked about in this run before.
json_spirit::Value incrementCheckBody(const std::string& definitionId,
                                      const std::string& instanceId, bool compress, bool first,
                                      std::span<const IncrementItem> items);

// The paths that the service wants. False when the answer is not of its shape.
bool readIncrementAnswer(const json_spirit::Value& answer, std::vector<std::string>& paths);

// How many blocks of an announced file the service holds; none when it does not say.
std::optional<uint64_t> readHeldBlocks(const std::string& body);

// The paths that keep the service from ending a run, as far as its refusal names any.
std::vector<std::string> readIncomplete(const std::string& body);

// A path as the service knows it.
std::string withoutTrailingBackslash(std::string path);

}  // namespace dorvo
