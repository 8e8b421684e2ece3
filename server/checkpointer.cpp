#include "checkpointer.h"

#include <exception>
#include <iostream>

#include "sqlite.h"

namespace dorvo {

Checkpointer::Checkpointer(std::string path, std::mutex& writers)
    : path_(std::move(path)), writers_(writers), thread_([this] { work(); }) {}

Checkpointer::~Checkpointer() {
    {
        const std::lock_guard lock(mutex_);
        stop_ = true;
    }
    changed_.notify_one();
    thread_.join();
}

void Checkpointer::poke() {
    {
        const std::lock_guard lock(mutex_);
        due_ = true;
    }
    changed_.notify_one();
}

void Checkpointer::work() {
    std::unique_lock lock(mutex_);
    while (true) {
        changed_.wait(lock, [this] { return due_ || stop_; });
        if (stop_) {
            return;
        }
        due_ = false;
        lock.unlock();
        try {
            checkpoint();
        } catch (const std::exception& error) {
            // Nothing is lost: the log keeps all of it, and the next commit pokes again.
            std::cerr << std::string("checkpoint: ") + error.what() + "\n";
        }
        lock.lock();
    }
}

void Checkpointer::checkpoint() {
    Database database(path_);
    database.exec("PRAGMA synchronous=NORMAL");
    database.exec("PRAGMA wal_checkpoint(PASSIVE)");
    const std::lock_guard lock(writers_);
    database.exec("PRAGMA wal_checkpoint(RESTART)");
}

}  // namespace dorvo
