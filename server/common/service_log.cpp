#include "common/service_log.h"

#include <fcntl.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <iostream>
#include <mutex>
#include <system_error>
#include <utility>

namespace dorvo {

namespace {

// UTC with milliseconds, such as "2024-01-31T12:00:00.123Z".
std::string timeText() {
    const auto now = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    const auto milliseconds =
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() %
        1000;
    std::tm utc{};
    ::gmtime_r(&seconds, &utc);
    std::array<char, 64> text{};
    const size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &utc);
    static_cast<void>(std::snprintf(text.data() + length, text.size() - length, ".%03dZ",
                                    static_cast<int>(milliseconds)));
    return text.data();
}

FileDescriptor openLog(const std::string& file) {
    return FileDescriptor(::open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
}

bool isControl(unsigned char byte) {
    return byte < 0x20 || byte == 0x7F;
}

void appendEscaped(std::string& text, const std::string& line) {
    static constexpr char digits[] = "0123456789abcdef";
    size_t escaped = 0;  // bytes of a control character that is written as its bytes
    for (size_t i = 0; i < line.size(); ++i) {
        const auto byte = static_cast<unsigned char>(line[i]);
        const auto next = static_cast<unsigned char>(i + 1 < line.size() ? line[i + 1] : 0);
        if (isControl(byte)) {
            escaped = 1;
        } else if (byte == 0xC2 && next >= 0x80 && next < 0xA0) {
            escaped = 2;  // U+0080 to U+009F
        }
        if (escaped != 0) {
            --escaped;
            text += "\\x";
            text += digits[byte >> 4U];
            text += digits[byte & 15U];
        } else {
            text.append(line[i] == '\\' ? 2 : 1, line[i]);
        }
    }
}

std::mutex mutex;  // guards current
EventLog::Write current;

}  // namespace

RequestLog::RequestLog(const std::string& file)
    : file_(file), fd_(file.empty() ? FileDescriptor(::dup(STDERR_FILENO)) : openLog(file)) {
    if (!fd_) {
        throw std::system_error(errno, std::generic_category(), "cannot open " + file);
    }
}

void RequestLog::write(const std::string& line) const {
    std::string text = timeText() + " ";
    appendEscaped(text, line);
    text += '\n';
    // A log that cannot be written must not stop the service.
    [[maybe_unused]] const ssize_t written = ::write(fd_.get(), text.data(), text.size());
}

void RequestLog::reopen() const {
    if (file_.empty()) {
        return;
    }
    const FileDescriptor fresh = openLog(file_);
    // In one step: the number never stands for nothing, or for another file.
    if (!fresh || ::dup3(fresh.get(), fd_.get(), O_CLOEXEC) < 0) {
        write("service: cannot open " + file_ +
              " again: " + std::generic_category().message(errno));
    }
}

EventLog::EventLog(Write write) {
    const std::lock_guard lock(mutex);
    current = std::move(write);
}

EventLog::~EventLog() {
    const std::lock_guard lock(mutex);
    current = nullptr;
}

void logEvent(const std::string& line) noexcept {
    try {
        const std::lock_guard lock(mutex);
        if (current) {
            current("service: " + line);
        } else {
            std::cerr << "storage-server: " + line + "\n";
        }
    } catch (const std::exception&) {
        // Memory is short, most likely: nothing goes wrong for want of a line.
    }
}

}  // namespace dorvo
