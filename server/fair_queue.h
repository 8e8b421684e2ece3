// A bounded queue in which nobody can push in front of others by coming often.
//
// Who waits has two names, the wide one (such as an address) and the narrow one (such as a user).
// The next is of the wide name whose last turn is longest ago, and there of the narrow name whose
// last turn is; between equals the one who came first. Where there is no room, the newest of those
// goes who take up most of it. Small by nature: each call looks at all who wait. One thread at a
// time.
#pragma once

#include <algorithm>
#include <cstdint>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <utility>

namespace dorvo {

template <class T>
class FairQueue {
public:
    explicit FairQueue(size_t capacity) : capacity_(capacity) {}

    // The one for whom there is no room, which may be this one.
    std::optional<T> push(const std::string& wide, const std::string& narrow, T value) {
        waiting_.push_back({{wide, ""}, {wide, narrow}, std::move(value)});
        if (waiting_.size() <= capacity_) {
            return std::nullopt;
        }
        // Of equals the last.
        auto victim = waiting_.begin();
        for (auto it = waiting_.begin(); it != waiting_.end(); ++it) {
            if (crowd(*it) >= crowd(*victim)) {
                victim = it;
            }
        }
        return take(victim);
    }

    std::optional<T> pop() {
        if (waiting_.empty()) {
            return std::nullopt;
        }
        const auto next = std::min_element(
            waiting_.begin(), waiting_.end(),
            [this](const Entry& a, const Entry& b) { return lastTurns(a) < lastTurns(b); });
        ++turn_;
        turns_[next->wide] = turn_;
        turns_[next->both] = turn_;
        T value = take(next);
        // Names for whom nobody waits need no memory: one who comes alone pushes nobody back.
        std::erase_if(turns_, [this](const auto& turn) {
            return std::none_of(waiting_.begin(), waiting_.end(), [&](const Entry& entry) {
                return entry.wide == turn.first || entry.both == turn.first;
            });
        });
        return value;
    }

    [[nodiscard]] bool empty() const { return waiting_.empty(); }
    void clear() { waiting_.clear(); }

private:
    using Name = std::pair<std::string, std::string>;

    struct Entry {
        Name wide;  // with an empty second part
        Name both;
        T value;
    };

    // How many share the entry's names.
    std::pair<size_t, size_t> crowd(const Entry& entry) const {
        std::pair<size_t, size_t> count;
        for (const Entry& other : waiting_) {
            count.first += other.wide == entry.wide ? 1 : 0;
            count.second += other.both == entry.both ? 1 : 0;
        }
        return count;
    }

    std::pair<uint64_t, uint64_t> lastTurns(const Entry& entry) const {
        const auto of = [this](const Name& name) {
            const auto found = turns_.find(name);
            return found == turns_.end() ? uint64_t{0} : found->second;
        };
        return {of(entry.wide), of(entry.both)};
    }

    T take(typename std::list<Entry>::iterator entry) {
        T value = std::move(entry->value);
        waiting_.erase(entry);
        return value;
    }

    size_t capacity_;
    std::list<Entry> waiting_;  // in the order in which they came
    std::map<Name, uint64_t> turns_;
    uint64_t turn_ = 0;
};

}  // namespace dorvo
