// Keeps stores into the mapped activity record in the order in which they stand: a process that is
// killed between two of them leaves a record that makes sense.
#pragma once

#include <atomic>

namespace dorvo {

inline void storeOrder() {
    std::atomic_signal_fence(std::memory_order_seq_cst);
}

}  // namespace dorvo
