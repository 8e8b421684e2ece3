#include "resident/loginplan.h"

#include <algorithm>

namespace dorvo::agent {

void LoginPlan::need(const std::set<std::string>& users, uint64_t now) {
    std::erase_if(users_, [&](const auto& entry) { return !users.contains(entry.first); });
    for (const std::string& user : users) {
        users_.try_emplace(user, Entry{.due = now});
    }
}

std::vector<std::string> LoginPlan::due(uint64_t now) const {
    std::vector<std::string> users;
    for (const auto& [user, entry] : users_) {
        if (entry.due && *entry.due <= now) {
            users.push_back(user);
        }
    }
    return users;
}

bool LoginPlan::tried(const std::string& user, Outcome outcome, const Rules& rules, uint64_t now) {
    const auto found = users_.find(user);
    if (found == users_.end()) {
        return true;
    }
    if (outcome == Outcome::done) {
        users_.erase(found);
        return true;
    }
    Entry& entry = found->second;
    ++entry.tries;
    entry.due.reset();
    if (outcome == Outcome::failed && entry.tries < rules.tries) {
        entry.due = now + rules.againMs;
    }
    return !entry.due;
}

std::optional<uint64_t> LoginPlan::next() const {
    std::optional<uint64_t> next;
    for (const auto& [user, entry] : users_) {
        if (entry.due) {
            next = std::min(next.value_or(*entry.due), *entry.due);
        }
    }
    return next;
}

}  // namespace dorvo::agent
