// Overwrites secrets in memory when they are of no more use.
#pragma once

#include <openssl/crypto.h>

#include <string>

namespace dorvo {

// Wipes and empties a borrowed string at the end of a scope. What the string held before it grew is
// not reached: give it its size at once.
class WipeAtEnd {
public:
    explicit WipeAtEnd(std::string& bytes) : bytes_(bytes) {}
    ~WipeAtEnd() {
        OPENSSL_cleanse(bytes_.data(), bytes_.size());
        bytes_.clear();
    }
    WipeAtEnd(const WipeAtEnd&) = delete;
    WipeAtEnd& operator=(const WipeAtEnd&) = delete;

private:
    std::string& bytes_;
};

}  // namespace dorvo
