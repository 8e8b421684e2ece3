// A refusal that goes to the client: an HTTP status and one sentence that says why.
//
// Whatever else is thrown while a request is handled is the service's own fault and answered 503.
#pragma once

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace dorvo {

class ServiceError : public std::runtime_error {
public:
    ServiceError(int status, const std::string& why) : std::runtime_error(why), status_(status) {}

    [[nodiscard]] int status() const { return status_; }

private:
    int status_;
};

// A backup cannot be completed for want of files. The client, told which, can do without them.
class IncompleteBackup : public ServiceError {
public:
    // At least one path.
    explicit IncompleteBackup(std::vector<std::string> paths)
        : ServiceError(409, "a file of the backup is incomplete: " + paths.front()),
          paths_(std::move(paths)) {}

    [[nodiscard]] const std::vector<std::string>& paths() const { return paths_; }

private:
    std::vector<std::string> paths_;
};

}  // namespace dorvo
