#include "packages/disk_room.h"

#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "common/files.h"
#include "common/service_error.h"
#include "common/service_log.h"

namespace dorvo {

namespace fs = std::filesystem;

namespace {

constexpr int64_t mib = int64_t{1} << 20U;
constexpr int64_t leastReserve = 64 * mib;
constexpr int64_t mostReserve = 1024 * mib;
constexpr int64_t mostHeld = 64 * mib;
constexpr int64_t leastHeld = mib / 8;
// For the catalog's log and its index, until the first checkpoint.
constexpr int64_t roomToBegin = 4 * mib;

std::optional<DiskSpace> systemSpace(const fs::path& folder) {
    struct statvfs status {};
    if (::statvfs(folder.c_str(), &status) != 0) {
        return std::nullopt;
    }
    const auto unit = static_cast<int64_t>(status.f_frsize);
    return DiskSpace{static_cast<int64_t>(status.f_bavail) * unit,
                     static_cast<int64_t>(status.f_blocks) * unit};
}

}  // namespace

DiskRoom::DiskRoom(fs::path data, std::optional<int64_t> reserve, Source source)
    : data_(std::move(data)),
      reserve_(reserve),
      source_(source ? std::move(source) : Source(&systemSpace)) {
    std::error_code none;
    const auto size = fs::file_size(data_ / "reserve", none);
    held_ = none ? 0 : static_cast<int64_t>(size);
}

DiskRoom::~DiskRoom() {
    hold();
}

int64_t DiskRoom::reserveOf(const DiskSpace& space) const {
    return reserve_.value_or(
        std::min(std::clamp(space.total / 100, leastReserve, mostReserve), space.total / 10));
}

void DiskRoom::requireForUpload() {
    // The packages may lie on a disk of their own.
    for (const fs::path& folder : {data_, data_ / "packages"}) {
        const auto space = source_(folder);
        if (!space || space->available >= reserveOf(*space)) {
            continue;
        }
        const std::string why =
            "the server's disk is full: " + std::to_string(space->available / mib) +
            " MiB are left, of " + std::to_string(reserveOf(*space) / mib) + " MiB kept in reserve";
        if (!full_.exchange(true)) {
            logEvent("uploads are refused: " + why);
        }
        throw ServiceError(503, why);
    }
    if (full_.exchange(false)) {
        logEvent("uploads are taken again");
    }
    if (held_ == 0 && holds_) {
        hold();
    }
}

void DiskRoom::begin() {
    const auto space = source_(data_);
    if (space && space->available < roomToBegin) {
        giveWay();
    }
}

bool DiskRoom::giveWay() {
    const std::lock_guard lock(mutex_);
    held_ = 0;
    std::error_code ignored;
    return fs::remove(data_ / "reserve", ignored);
}

void DiskRoom::hold() {
    const std::lock_guard lock(mutex_);
    const auto space = source_(data_);
    holds_ = !space || reserveOf(*space) / 4 >= leastHeld;
    // Half of little is still something when all of the rest has gone, too.
    const int64_t size =
        space ? std::min({reserveOf(*space) / 4, mostHeld, held_ + space->available / 2}) : 0;
    if (size < leastHeld || held_ >= size) {
        return;
    }
    const std::string file = (data_ / "reserve").string();
    const FileDescriptor fd(::open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    if (fd && ::posix_fallocate(fd.get(), 0, size) == 0) {
        held_ = size;
    } else if (held_ == 0 || (fd && ::ftruncate(fd.get(), held_) != 0)) {
        held_ = 0;
        ::unlink(file.c_str());
    }
}

}  // namespace dorvo
