// What happens in the service beside its requests: start and stop, damage, failed logins, faults.
//
// Any part of it says so from any thread; the lines go where those of the requests go, while there
// is a service in the process, and else to standard error.
#pragma once

#include <functional>
#include <string>

namespace dorvo {

class EventLog {
public:
    using Write = std::function<void(const std::string&)>;

    // Takes the lines from now on until it goes. There is one at a time.
    explicit EventLog(Write write);
    ~EventLog();
    EventLog(const EventLog&) = delete;
    EventLog& operator=(const EventLog&) = delete;
};

// One line, without time and end. Does not throw.
void logEvent(const std::string& line) noexcept;

}  // namespace dorvo
