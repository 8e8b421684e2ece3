// Moves the write-ahead log into the database file, on a thread and a connection of its own.
//
// SQLite would do it inside whichever commit fills the log, and that request would wait for the
// disk. Here the bulk is moved while writers go on; only the tail that they wrote meanwhile is
// moved under their lock, so that the log starts anew and stays small.
//
// What a reader of another process still needs cannot be moved. Nobody waits for that reader: the
// log grows, is tried again ever more seldom, and is cut to nothing once the reader has gone.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <stop_token>
#include <string>
#include <thread>

#include "catalog/turn_mutex.h"

namespace dorvo {

class Checkpointer {
public:
    // A log longer than this many pages is given back to the file system once it has been moved.
    static constexpr int64_t keptPages = 16384;

    // Borrows the mutex that serialises the writers; it must outlive this object.
    Checkpointer(std::string path, TurnMutex& writers);
    // Stops and joins; a checkpoint in progress is finished.
    ~Checkpointer() = default;
    Checkpointer(const Checkpointer&) = delete;
    Checkpointer& operator=(const Checkpointer&) = delete;

    // Says that the log has grown. Does not block.
    void poke();

    // One try. Whether all of the log has been moved; false when a reader, or a writer of another
    // process, is in the way. Waits for the disk only.
    static bool moveLog(const std::string& path, TurnMutex& writers, int64_t kept);

private:
    void work(const std::stop_token& stop);
    bool checkpoint();

    std::string path_;
    TurnMutex& writers_;
    std::mutex mutex_;  // guards due_
    std::condition_variable_any changed_;
    bool due_ = false;
    std::jthread thread_;  // the last: it uses all of the others
};

}  // namespace dorvo
