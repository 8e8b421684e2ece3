// The wait of a thread that works at a pace, and ends at once when it is told to stop.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stop_token>

namespace dorvo {

// Whether the stop was asked for before the time had gone by.
inline bool stopsWithin(const std::stop_token& stop, std::chrono::milliseconds time) {
    std::mutex mutex;  // the wait wants one; it guards nothing
    std::condition_variable_any never;
    std::unique_lock lock(mutex);  // cppcheck-suppress localMutex
    never.wait_for(lock, stop, time, [] { return false; });
    return stop.stop_requested();
}

}  // namespace dorvo
