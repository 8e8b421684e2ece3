#include "request_log.h"

#include <fcntl.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <system_error>

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

}  // namespace

RequestLog::RequestLog(const std::string& file)
    : fd_(file.empty() ? ::dup(STDERR_FILENO)
                       : ::open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600)) {
    if (!fd_) {
        throw std::system_error(errno, std::generic_category(), "cannot open " + file);
    }
}

void RequestLog::write(const std::string& line) const {
    std::string text = timeText() + " " + line;
    for (char& c : text) {
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) {
            c = '?';
        }
    }
    text += '\n';
    // A log that cannot be written must not stop the service.
    [[maybe_unused]] const ssize_t written = ::write(fd_.get(), text.data(), text.size());
}

}  // namespace dorvo
