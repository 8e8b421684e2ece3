// One line a request, with the time it was answered, to a file or to standard error.
//
// Each line is one write, so lines of several threads do not mix and what was written is there
// even when the process dies. Any thread.
#pragma once

#include <string>

#include "file_descriptor.h"

namespace dorvo {

class RequestLog {
public:
    // Appends to the file; empty means standard error. Throws std::exception when it can't.
    explicit RequestLog(const std::string& file);

    // The line comes without time and end; control characters in it are replaced.
    void write(const std::string& line) const;

private:
    FileDescriptor fd_;
};

}  // namespace dorvo
