// Lets a copy of the catalog that is put back be told from the catalog itself.
//
// The catalog counts generations, and the packages' marker follows it. A new one begins with each
// begin and end of service, with each backup that is completed, and at a steady pace while anything
// changes. So a copy falls behind the marker as soon as it lacks a completed backup, and a moment
// after it lacks anything else, however the service ends. What the copy then calls under way has
// gone on without it, and is not to be gone on with.
//
// The marker is written once its generation is on the catalog's disk: it is never ahead of a
// catalog that has lost nothing. A thread of its own keeps the pace.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <stop_token>
#include <thread>

#include "catalog/sqlite_catalog.h"
#include "packages/file_block_store.h"

namespace dorvo {

class Generations {
public:
    // Borrows both. Service has begun.
    Generations(SqliteCatalog& catalog, const FileBlockStore& blocks,
                std::chrono::milliseconds pace);
    // stop()
    ~Generations() = default;
    Generations(const Generations&) = delete;
    Generations& operator=(const Generations&) = delete;

    // Writes the catalog's generation to the marker. Any thread, also after stop(). Throws nothing:
    // a marker that cannot be written stays behind, with one line in the log for all tries.
    void follow();

    // Stops and joins the thread.
    void stop();

private:
    void work(const std::stop_token& stop);
    // After that call, a part of the try.
    void follow(const std::function<void()>& before);

    SqliteCatalog& catalog_;
    const FileBlockStore& blocks_;
    const std::chrono::milliseconds pace_;
    std::mutex mutex_;         // guards the two, and the marker against a generation gone by
    int64_t written_ = 0;      // the marker's
    bool complained_ = false;  // about the last try
    std::jthread thread_;      // the last: it uses all of the others
};

}  // namespace dorvo
