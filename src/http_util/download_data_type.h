// The body of a download: bytes as they came. Used again, it keeps its memory.
#pragma once

#include <cstddef>
#include <vector>

namespace dorvo {

class Download_Data_Type {
public:
    const char* data() const { return bytes_.data(); }
    char* data() { return bytes_.data(); }
    size_t size() const { return bytes_.size(); }
    void resize(size_t size) { bytes_.resize(size); }
    void clear() { bytes_.clear(); }

private:
    std::vector<char> bytes_;
};

}  // namespace dorvo
