#include "base/logfile.h"

#include <ace/Log_Msg.h>
#include <ace/Log_Msg_Backend.h>
#include <ace/Log_Record.h>

#include <array>
#include <cstdio>

#include "base/files.h"
#include "base/log.h"
#include "base/paths.h"

namespace dorvo {
namespace {

const char* levelText(LogLevel level) {
    switch (level) {
        case LogLevel::trace: return "trace";
        case LogLevel::debug: return "debug";
        case LogLevel::information: return "info";
        case LogLevel::warning: return "warning";
        case LogLevel::error: return "error";
    }
    return "other";
}

std::string lineOf(LogLevel level, std::string_view text) {
    std::string_view thread = "-";
    if (!text.empty() && text.front() == '@') {
        if (const size_t end = text.find('@', 1); end != std::string_view::npos) {
            thread = text.substr(1, end - 1);
            text.remove_prefix(end + 1);
        }
    }
    SYSTEMTIME now;
    GetLocalTime(&now);
    std::array<char, 64> stamp{};
    const int length =
        std::snprintf(stamp.data(), stamp.size(), "%04d-%02d-%02d %02d:%02d:%02d.%03d ", now.wYear,
                      now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond, now.wMilliseconds);
    std::string line(stamp.data(), static_cast<size_t>(length));
    line.append(thread).append(" ").append(levelText(level)).append(" ").append(text);
    if (line.back() != '\n') {
        line += '\n';
    }
    return line;
}

// Hands what ACE logs to the process's log file.
class Backend : public ACE_Log_Msg_Backend {
public:
    LogFile& file() { return file_; }

    int open(const ACE_TCHAR*) override { return 0; }
    int reset() override { return 0; }
    int close() override { return 0; }
    ssize_t log(ACE_Log_Record& record) override {
        const std::string_view text(record.msg_data());
        file_.write(static_cast<LogLevel>(record.type()), text);
        return static_cast<ssize_t>(text.size());
    }

private:
    LogFile file_;
};

// Never destroyed: other static objects may log while they are.
Backend& backend() {
    static auto* const made = new Backend;
    return *made;
}

constexpr u_long loggedLevels = LM_INFO | LM_NOTICE | LM_WARNING | LM_STARTUP | LM_ERROR |
                                LM_CRITICAL | LM_ALERT | LM_EMERGENCY;

}  // namespace

bool LogFile::open(const std::wstring& path, uint64_t limit) {
    std::lock_guard guard(lock_);
    path_ = path;
    limit_ = limit;
    return reopen();
}

void LogFile::close() {
    std::lock_guard guard(lock_);
    file_.reset();
}

void LogFile::write(LogLevel level, std::string_view text) {
    const std::string line = lineOf(level, text);
    std::lock_guard guard(lock_);
    if (!file_) {
        return;
    }
    if (size_ + line.size() > limit_) {
        file_.reset();
        MoveFileExW(longPath(path_).c_str(), longPath(path_ + L".old").c_str(),
                    MOVEFILE_REPLACE_EXISTING);
        if (!reopen()) {
            return;
        }
    }
    DWORD written = 0;
    WriteFile(file_.get(), line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
    size_ += written;
}

bool LogFile::reopen() {
    // Append access makes each write go to the end, whoever else writes to the file.
    file_.reset(CreateFileW(longPath(path_).c_str(), FILE_APPEND_DATA | FILE_READ_ATTRIBUTES,
                            FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                            OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    size_ = 0;
    if (file_) {
        fileSize(file_.get(), size_);
    }
    return static_cast<bool>(file_);
}

bool openLogFile(const std::wstring& path) {
    startAce();
    if (!backend().file().open(path)) {
        return false;
    }
    ACE_Log_Msg* const log = ACE_Log_Msg::instance();
    ACE_Log_Msg::msg_backend(&backend());
    logProgress(false);
    log->clr_flags(ACE_Log_Msg::STDERR);
    log->set_flags(ACE_Log_Msg::CUSTOM);
    return true;
}

void logProgress(bool on) {
    startAce();
    ACE_Log_Msg::instance()->priority_mask(loggedLevels | (on ? u_long{LM_DEBUG} : 0),
                                           ACE_Log_Msg::PROCESS);
}

void logLine(LogLevel level, const std::string& text) {
    log(level, "%s\n", text);
}

void closeLogFile() {
    startAce();
    ACE_Log_Msg::instance()->clr_flags(ACE_Log_Msg::CUSTOM | ACE_Log_Msg::STDERR);
    backend().file().close();
}

}  // namespace dorvo
