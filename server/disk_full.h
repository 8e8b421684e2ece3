// A write that found no room on the disk.
#pragma once

#include <stdexcept>

namespace dorvo {

class DiskFull : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace dorvo
