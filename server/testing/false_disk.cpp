#include "testing/false_disk.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

namespace {

std::atomic<const dorvo::FalseDisk::Sync*> current = nullptr;
std::atomic<bool> systemRemembers = false;

int sync(long call, int fd) {
    const auto* const disk = current.load();
    return disk != nullptr ? (*disk)(fd) : static_cast<int>(::syscall(call, fd));
}

}  // namespace

extern "C" int fsync(int fd) {
    return sync(SYS_fsync, fd);
}

extern "C" int fdatasync(int fd) {
    return sync(SYS_fdatasync, fd);
}

extern "C" int syncfs(int fd) {
    return sync(SYS_syncfs, fd);
}

extern "C" int posix_fadvise(int fd, off_t offset, off_t length, int advice) {
    return systemRemembers || ::syscall(SYS_fadvise64, fd, offset, length, advice) != 0 ? EINVAL
                                                                                        : 0;
}

namespace dorvo {

FalseDisk::FalseDisk(Sync sync, bool remembers) : sync_(std::move(sync)) {
    current = &sync_;
    systemRemembers = remembers;
}

FalseDisk::~FalseDisk() {
    current = nullptr;
    systemRemembers = false;
}

std::string FalseDisk::name(int fd) {
    return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd)).filename();
}

}  // namespace dorvo
