// The room on the disk that uploads leave free, so that what frees a full one always finds some.
//
// Two things keep it. Uploads are refused once less than the reserve is free. And since others
// write to the same disk, a file "reserve" holds a part of it: it is deleted when a write of the
// catalog finds no room all the same, and made again when there is enough. Any thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>

#include "common/files.h"

namespace dorvo {

// Of a disk, in bytes.
struct DiskSpace {
    int64_t available = 0;
    int64_t total = 0;
};

class DiskRoom {
public:
    // What is free where that folder lies; none when that cannot be told.
    using Source = std::function<std::optional<DiskSpace>(const std::filesystem::path&)>;

    // No reserve given: a hundredth of the disk, but from 64 MiB to 1 GiB, and never more than a
    // tenth. No source given: the system's.
    DiskRoom(std::filesystem::path data, std::optional<int64_t> reserve, Source source);
    // hold(): with what the closed catalog has left free.
    ~DiskRoom();
    DiskRoom(const DiskRoom&) = delete;
    DiskRoom& operator=(const DiskRoom&) = delete;

    // Throws ServiceError when uploads must wait.
    void requireForUpload();

    // Sees to it that the service can begin.
    void begin();
    // After a write that found no room: whether there is more now, for another try.
    bool giveWay();
    // Makes the file, or makes it larger, as far as there is room. Never throws.
    void hold();
    // What the call gives. One that throws DiskFull has changed nothing that it would not do again,
    // and is made again if some room can be given.
    template <class Call>
    auto givingWay(const Call& call) {
        try {
            return call();
        } catch (const DiskFull&) {
            if (!giveWay()) {
                throw;
            }
        }
        const Holding rest{*this};
        return call();
    }

private:
    // A part of what was given is for the next one.
    struct Holding {
        DiskRoom& room;
        ~Holding() { room.hold(); }
    };

    [[nodiscard]] int64_t reserveOf(const DiskSpace& space) const;

    std::filesystem::path data_;
    std::optional<int64_t> reserve_;
    Source source_;
    std::mutex mutex_;               // guards the file
    std::atomic<int64_t> held_ = 0;  // bytes of the file
    // There is a reserve of which a part could be held.
    std::atomic<bool> holds_ = true;
    std::atomic<bool> full_ = false;  // uploads were refused last
};

}  // namespace dorvo
