// Stands between the program and the system's fsync(), fdatasync() and posix_fadvise(), those of
// the database too.
#pragma once

#include <atomic>
#include <functional>
#include <string>

namespace dorvo {

class FalseDisk {
public:
    // What a sync of that descriptor comes to: 0, or -1 with errno. On the thread that syncs.
    using Sync = std::function<int(int fd)>;

    // From now on until the end of this object, of which there is one at a time. `remembers`: the
    // system refuses to forget what it has of files.
    explicit FalseDisk(Sync sync, bool remembers = false);
    ~FalseDisk();
    FalseDisk(const FalseDisk&) = delete;
    FalseDisk& operator=(const FalseDisk&) = delete;

    // The last name of the file.
    static std::string name(int fd);

private:
    const Sync sync_;
};

// How many files of that name are synced while this lives.
class SyncCount {
public:
    explicit SyncCount(std::string name)
        : disk_([this, name = std::move(name)](int fd) {
              count_ += FalseDisk::name(fd) == name ? 1 : 0;
              return 0;
          }) {}
    [[nodiscard]] int count() const { return count_; }

private:
    std::atomic<int> count_ = 0;
    FalseDisk disk_;
};

}  // namespace dorvo
