// The service's log: lines with their time, to a file or to standard error.
//
// A line can hold what strangers have sent. Control characters in it are written as \x1b, and a
// backslash as two, so that a line is one line and does nothing to the terminal that shows it.
// Each line is one write, so lines of several threads do not mix and what was written is there
// even when the process dies. Any thread.
#pragma once

#include <string>

#include "support/file_descriptor.h"

namespace dorvo {

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

}  // namespace dorvo
