// Finds out that a chain of tokens has come back to where it was, however long the way round is,
// and remembers one token at a time. For lists that a service gives page by page.
#pragma once

#include <cstdint>
#include <string>

namespace dorvo {

class TokenLoop {
public:
    // True when the chain is known to go round. The tokens are not empty.
    bool closedBy(const std::string& token) {
        if (token == remembered_) {
            return true;
        }
        if (++steps_ == stride_) {
            remembered_ = token;
            steps_ = 0;
            stride_ *= 2;
        }
        return false;
    }

private:
    std::string remembered_;
    uint64_t steps_ = 0;  // since one was remembered
    uint64_t stride_ = 1;
};

}  // namespace dorvo
