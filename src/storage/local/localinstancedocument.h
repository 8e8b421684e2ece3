// The document "instance" of a backup in a folder. docs/formats/local-storage.md has its members.
//
// Pure: texts in, texts out.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace dorvo {

struct LocalInstanceDocument {
    enum class State { running, completed };

    State state = State::running;
    uint64_t sequence = 0;  // later instances of a job have greater ones
    std::string id;
    std::string jobId;
    std::string jobName;
    std::string machine;
    std::string user;
    std::string keyMd5;     // 32 hexadecimal digits
    std::string startTime;  // UTC texts
    std::string endTime;    // empty while the run lasts
    uint64_t files = 0;     // totals of the walk
    uint64_t directories = 0;
    uint64_t size = 0;
    uint64_t carried = 0;  // files carried over from earlier instances
    uint64_t awaited = 0;  // files that the run had to store
    // Of a completed instance:
    uint64_t errors = 0;        // items that failed
    uint64_t records = 0;       // in the index
    uint64_t indexSize = 0;     // bytes of the file
    uint64_t packagesSize = 0;  // bytes of the file that packages take

    bool operator==(const LocalInstanceDocument&) const = default;
};

// "running" or "completed".
std::string localStateText(LocalInstanceDocument::State state);

// Formatted JSON.
std::string formatLocalInstance(const LocalInstanceDocument& document);
// Nothing when a member is missing or of another type, or a value makes no sense.
std::optional<LocalInstanceDocument> parseLocalInstance(const std::string& text);

}  // namespace dorvo
