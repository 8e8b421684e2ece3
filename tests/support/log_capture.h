// Collects what is logged while it lives, by any thread of the process.
//
// One at a time. lines() gives each record without its "@<thread>@" prefix, oldest first.
#pragma once

#include <ace/Log_Msg.h>
#include <ace/Log_Msg_Backend.h>
#include <ace/Log_Record.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "base/log.h"

namespace dorvo::test {

struct LogLine {
    LogLevel level;
    std::string text;
};

class LogCapture : public ACE_Log_Msg_Backend {
public:
    LogCapture() {
        startAce();
        previous_ = ACE_Log_Msg::msg_backend(this);
        ACE_Log_Msg::instance()->clr_flags(ACE_Log_Msg::STDERR);
        ACE_Log_Msg::instance()->set_flags(ACE_Log_Msg::CUSTOM);
    }
    ~LogCapture() override {
        ACE_Log_Msg::instance()->clr_flags(ACE_Log_Msg::CUSTOM);
        ACE_Log_Msg::instance()->set_flags(ACE_Log_Msg::STDERR);
        ACE_Log_Msg::msg_backend(previous_);
    }

    std::vector<LogLine> lines() const {
        std::lock_guard guard(lock_);
        return lines_;
    }
    bool has(const std::string& text) const {
        return any([&](const LogLine& line) { return line.text == text; });
    }
    // Waits for a line that begins so.
    void await(const std::string& text) const {
        std::unique_lock guard(lock_);
        more_.wait(guard, [&] {
            return std::any_of(lines_.begin(), lines_.end(),
                               [&](const LogLine& line) { return line.text.starts_with(text); });
        });
    }
    bool begins(const std::string& text) const {
        return any([&](const LogLine& line) { return line.text.starts_with(text); });
    }

private:
    template <class Is>
    bool any(Is is) const {
        const auto all = lines();
        return std::any_of(all.begin(), all.end(), is);
    }
    int open(const ACE_TCHAR*) override { return 0; }
    int reset() override { return 0; }
    int close() override { return 0; }
    ssize_t log(ACE_Log_Record& record) override {
        std::string text(record.msg_data());
        if (const size_t end = text.find('@', 1); end != std::string::npos) {
            text.erase(0, end + 1);
        }
        std::lock_guard guard(lock_);
        lines_.push_back({static_cast<LogLevel>(record.type()), text});
        more_.notify_all();
        return static_cast<ssize_t>(text.size());
    }

    mutable std::mutex lock_;  // guards lines_
    std::vector<LogLine> lines_;
    mutable std::condition_variable more_;  // a line has come
    ACE_Log_Msg_Backend* previous_ = nullptr;
};

}  // namespace dorvo::test
