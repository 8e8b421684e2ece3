// Which logins are to be tried when. Pure; times are milliseconds of a clock that only goes on.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace dorvo::agent {

class LoginPlan {
public:
    enum class Outcome { done, failed, refused };

    struct Rules {
        int tries = 0;         // in all
        uint64_t againMs = 0;  // between two
    };

    // Who is without a session now. Newcomers are due at once; who is no longer among them is
    // forgotten, and starts anew when the session is lost again.
    void need(const std::set<std::string>& users, uint64_t now);
    // Who is to be tried now.
    std::vector<std::string> due(uint64_t now) const;
    // What came of a try. True when it was the last one: none follows by itself.
    bool tried(const std::string& user, Outcome outcome, const Rules& rules, uint64_t now);
    // When the next try is due; nothing when none is.
    std::optional<uint64_t> next() const;

private:
    struct Entry {
        int tries = 0;
        std::optional<uint64_t> due;  // nothing: given up
    };
    std::map<std::string, Entry> users_;
};

}  // namespace dorvo::agent
