// A refusal that goes to the client: an HTTP status and one sentence that says why.
//
// Whatever else is thrown while a request is handled is the service's own fault and answered 503.
#pragma once

#include <stdexcept>
#include <string>

namespace dorvo {

class ServiceError : public std::runtime_error {
public:
    ServiceError(int status, const std::string& why) : std::runtime_error(why), status_(status) {}

    [[nodiscard]] int status() const { return status_; }

private:
    int status_;
};

}  // namespace dorvo
