// Counts the logins of each user from each address, so that passwords cannot be tried out.
//
// A try counts when it begins, so that many at once are no more than as many one after the other.
// After ten within fifteen minutes further ones are refused until the first of them is fifteen
// minutes old; a success forgets them. Kept in memory, for a bounded number of pairs: when
// it is full, the oldest is forgotten. Times are of a clock that nobody sets. Any thread.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <utility>

namespace dorvo {

class LoginLimiter {
public:
    static constexpr int maxTries = 10;
    static constexpr int64_t windowSeconds = int64_t{15} * 60;
    static constexpr size_t maxPairs = 10000;

    // Whether the next try would be refused.
    bool closed(const std::string& user, const std::string& address, int64_t now);
    // Counts a try. False: it is refused.
    bool begin(const std::string& user, const std::string& address, int64_t now);
    // A try that has begun did not come so far that the password was compared.
    void takeBack(const std::string& user, const std::string& address);
    void succeeded(const std::string& user, const std::string& address);

private:
    struct Tries {
        int64_t since = 0;
        int count = 0;
    };
    using Pair = std::pair<std::string, std::string>;

    void makeRoom(int64_t now);

    std::mutex mutex_;  // guards tries_
    std::map<Pair, Tries> tries_;
};

}  // namespace dorvo
