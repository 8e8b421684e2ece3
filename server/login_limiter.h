// Counts failed logins of each user from each address, so that passwords cannot be tried out.
//
// After ten failures within fifteen minutes further tries are refused until the first of them is
// fifteen minutes old; a success forgets them. Kept in memory, for a bounded number of pairs: when
// it is full, the oldest is forgotten. Any thread.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <utility>

namespace dorvo {

class LoginLimiter {
public:
    static constexpr int maxFailures = 10;
    static constexpr int64_t windowSeconds = int64_t{15} * 60;
    static constexpr size_t maxPairs = 10000;

    bool allowed(const std::string& user, const std::string& address, int64_t now);
    void failed(const std::string& user, const std::string& address, int64_t now);
    void succeeded(const std::string& user, const std::string& address);

private:
    struct Failures {
        int64_t since = 0;
        int count = 0;
    };
    using Pair = std::pair<std::string, std::string>;

    void makeRoom(int64_t now);

    std::mutex mutex_;  // guards failures_
    std::map<Pair, Failures> failures_;
};

}  // namespace dorvo
