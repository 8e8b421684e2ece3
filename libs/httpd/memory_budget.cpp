#include "httpd/memory_budget.h"

#include <utility>

namespace dorvo {

size_t MemoryBudget::takenBy(const std::string& client) const {
    const auto found = ofClient_.find(client);
    return found == ofClient_.end() ? 0 : found->second;
}

void MemoryBudget::add(const std::string& client, size_t bytes) {
    if (!client.empty()) {
        ofClient_[client] += bytes;
    }
    used_ += bytes;
}

void MemoryBudget::Share::setClient(std::string client) {
    giveBack();
    client_ = std::move(client);
}

bool MemoryBudget::Share::raise(size_t bytes) {
    if (bytes <= taken_) {
        return true;
    }
    const size_t more = bytes - taken_;
    const std::lock_guard lock(budget_.mutex_);
    const auto fits = [more](size_t used, size_t most) {
        return used <= most && more <= most - used;
    };
    if (!fits(budget_.used_, budget_.bytes_) ||
        !fits(budget_.takenBy(client_), budget_.bytesOfClient_)) {
        return false;
    }
    budget_.add(client_, more);
    taken_ = bytes;
    return true;
}

void MemoryBudget::Share::count(size_t bytes) {
    const std::lock_guard lock(budget_.mutex_);
    budget_.add(client_, bytes);
    taken_ += bytes;
}

void MemoryBudget::Share::giveBack() {
    if (taken_ == 0) {
        return;
    }
    const std::lock_guard lock(budget_.mutex_);
    budget_.used_ -= taken_;
    if (const auto own = budget_.ofClient_.find(client_);
        own != budget_.ofClient_.end() && (own->second -= taken_) == 0) {
        budget_.ofClient_.erase(own);
    }
    taken_ = 0;
}

bool MemoryBudget::Share::clientHasTooMuch() const {
    const std::lock_guard lock(budget_.mutex_);
    return budget_.takenBy(client_) > budget_.bytesOfClient_;
}

}  // namespace dorvo
