// Decides which files of a source list need sending.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace dorvo {

class IncrementCheck {
public:
    struct File {
        std::wstring path;           // live, as the list would name it
        uint64_t lastWriteTime = 0;  // FILETIME, UTC
    };

    virtual ~IncrementCheck() = default;
    // `send` comes with one false a file; true sends the file at that place. False ends the
    // generation: the last error says why. Called with 1 to 1000 files, on the generating thread.
    virtual bool check(const std::vector<File>& files, std::vector<bool>& send) = 0;
};

}  // namespace dorvo
