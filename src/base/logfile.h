// The module's log in a file of bounded size: each line with its local time, thread and level.
//
// A file that has grown past its limit becomes "<path>.old", in place of the one before, and a new
// one is begun. Several processes may write to one file; a line is written whole or not at all.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>

#include "base/api.h"
#include "base/handle.h"

namespace dorvo {

enum class LogLevel : int;

class LogFile {
public:
    static constexpr uint64_t sizeLimit = uint64_t{5} << 20;

    // False, with the reason in the thread's last error, when the file cannot be opened.
    bool open(const std::wstring& path, uint64_t limit = sizeLimit);
    void close();

    // `text` is a record as log() makes it: "@<thread>@", the message, a line end. Any thread. A
    // line that cannot be written is lost: the log never holds up what it tells about.
    void write(LogLevel level, std::string_view text);

private:
    bool reopen();

    std::mutex lock_;  // guards all below
    std::wstring path_;
    uint64_t limit_ = sizeLimit;
    FileHandle file_;
    uint64_t size_ = 0;  // of the file as far as this process knows
};

// Sends what the process's module logs to this file instead of standard error: information and
// above, since the progress of large backups would soon push the errors out. False, and nothing
// changed, when the file cannot be opened.
DORVO_JOB_API bool openLogFile(const std::wstring& path);

// Whether an open log file gets debug messages too, which tell of progress. Never traces.
DORVO_JOB_API void logProgress(bool on);

// A line of the host's own in the module's log; its end is added. Any thread.
DORVO_JOB_API void logLine(LogLevel level, const std::string& text);

// From now on the module's log goes nowhere, whether a file was open or not.
DORVO_JOB_API void closeLogFile();

}  // namespace dorvo
