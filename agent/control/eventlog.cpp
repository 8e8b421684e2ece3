#include "control/eventlog.h"

#include <algorithm>
#include <utility>

#include "notify/jobnotifymanager.h"
#include "text/singletons.h"

namespace dorvo::agent {
namespace {

std::string stateOf(const std::string& text) {
    try {
        json_spirit::Value value;
        json_spirit::read_or_throw(text, value);
        const json_spirit::Object& event = value.get_obj();
        json_spirit::Object state;
        for (const char* member : {"id", "state"}) {
            state[member] = json_spirit::object_get_str_or_throw(event, member);
        }
        return json_spirit::write(json_spirit::Value(state));
    } catch (const json_spirit::Error_position&) {
        return {};
    } catch (const std::runtime_error&) {
        return {};
    }
}

}  // namespace

EventLog::EventLog(size_t kept) : JobNotifyObserver(nullptr), kept_(kept) {
    singleton<JobNotifyManagerImpl>().registerObserver(this);
}

EventLog::~EventLog() {
    singleton<JobNotifyManagerImpl>().unregisterObserver(this);
}

bool EventLog::deliver(const std::string& text) {
    std::string state = stateOf(text);
    std::lock_guard guard(lock_);
    entries_.push_back({text, std::move(state)});
    ++newest_;
    if (entries_.size() > kept_) {
        entries_.pop_front();
    }
    for (auto waiter = waiters_.begin(); waiter != waiters_.end();) {
        Page page = pageFor(waiter->second);
        if (page.texts.empty()) {
            ++waiter;
            continue;
        }
        waiter->second.take(std::move(page));
        waiter = waiters_.erase(waiter);
    }
    return true;
}

int64_t EventLog::newest() const {
    std::lock_guard guard(lock_);
    return newest_;
}

uint64_t EventLog::waitForEvents(int64_t after, Take take) {
    return wait({after, false, std::move(take)});
}

uint64_t EventLog::waitForState(int64_t after, Take take) {
    return wait({after, true, std::move(take)});
}

uint64_t EventLog::wait(Waiter waiter) {
    std::unique_lock guard(lock_);
    waiter.after = std::min(waiter.after, newest_);
    Page page = pageFor(waiter);
    if (!page.texts.empty()) {
        guard.unlock();  // a page may be long
        waiter.take(std::move(page));
        return 0;
    }
    waiters_.emplace(++lastWaiter_, std::move(waiter));
    return lastWaiter_;
}

EventLog::Page EventLog::pageFor(const Waiter& waiter) const {
    Page page;
    const int64_t oldest = newest_ - static_cast<int64_t>(entries_.size()) + 1;
    for (int64_t number = std::max(waiter.after + 1, oldest); number <= newest_; ++number) {
        const Entry& entry = entries_[static_cast<size_t>(number - oldest)];
        page.next = number;
        if (!waiter.states) {
            page.texts.push_back(entry.text);
        } else if (!entry.state.empty()) {
            page.texts.push_back(entry.state);
            break;
        }
    }
    return page;
}

void EventLog::cancel(uint64_t waiter) {
    decltype(waiters_)::node_type ended;  // goes after the lock
    std::lock_guard guard(lock_);
    ended = waiters_.extract(waiter);
}

}  // namespace dorvo::agent
