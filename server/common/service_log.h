// The service's log: a line for each request, and one for each event beside them.
//
// Events are start and stop, damage, failed logins, faults. Any part of the service tells of them
// by logEvent(); the lines go where those of the requests go, while there is a service in the
// process, and else to standard error. Any thread.
#pragma once

#include <functional>
#include <string>

#include "common/files.h"

namespace dorvo {

// Lines with their time, to a file or to standard error.
//
// A line can hold what strangers have sent. Control characters in it are written as \x1b, and a
// backslash as two, so that a line is one line and does nothing to the terminal that shows it.
// Each line is one write, so lines of several threads do not mix and what was written is there
// even when the process dies.
class RequestLog {
public:
    // Appends to the file; empty means standard error. Throws std::exception when it can't.
    explicit RequestLog(const std::string& file);

    // The line comes without time and end.
    void write(const std::string& line) const;

    // Opens the file by its name again, for it has been renamed; lines that are being written go to
    // the one or the other. When it cannot, it says so in the file that it has.
    void reopen() const;

private:
    std::string file_;
    FileDescriptor fd_;
};

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
