#include "packages/file_block_store.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <stdexcept>
#include <system_error>

#include "common/files.h"
#include "packages/package_marker.h"

namespace dorvo {

namespace fs = std::filesystem;

namespace {

constexpr mode_t fileMode = 0600;
// Numbers are counted up from 1: a file with a higher one is nobody's, and counting on from it
// would soon come to the end.
constexpr int64_t mostContainers = int64_t{1} << 62U;

FileDescriptor open(const fs::path& path, int flags) {
    return FileDescriptor(::open(path.c_str(), flags | O_CLOEXEC, fileMode));
}

}  // namespace

FileBlockStore::FileBlockStore(fs::path folder, int64_t limit, Written written)
    : folder_(std::move(folder)), limit_(limit), written_(std::move(written)) {}

fs::path FileBlockStore::path(int64_t container) const {
    static constexpr char digits[] = "0123456789abcdef";
    const auto low = static_cast<unsigned>(container & 0xFF);
    return folder_ / std::string{digits[low >> 4U], digits[low & 15U]} /
           (std::to_string(container) + ".pkg");
}

void FileBlockStore::write(int64_t container, int64_t offset, std::string_view bytes) {
    requireMarker(folder_);
    const size_t size = bytes.size();
    const fs::path file = path(container);
    FileDescriptor fd = open(file, O_WRONLY | O_CREAT);
    if (!fd && errno == ENOENT) {
        // Only this one: the folder above has gone, if it is not there now.
        makeFolder(file.parent_path());
        fd = open(file, O_WRONLY | O_CREAT);
    }
    if (!fd) {
        failAt("cannot open", file);
    }
    while (!bytes.empty()) {
        const ssize_t written = ::pwrite(fd.get(), bytes.data(), bytes.size(), offset);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            failAt("cannot write", file);
        }
        bytes.remove_prefix(static_cast<size_t>(written));
        offset += written;
    }
    if (written_) {
        written_(container, size);
    }
}

void FileBlockStore::read(int64_t container, int64_t offset, std::span<char> bytes) {
    const fs::path file = path(container);
    const FileDescriptor fd = open(file, O_RDONLY);
    if (!fd && errno == ENOENT) {
        requireMarker(folder_);
        throw LostBytes(file.string() + " is gone");
    }
    if (!fd) {
        failAt("cannot open", file);
    }
    while (!bytes.empty()) {
        const ssize_t count = ::pread(fd.get(), bytes.data(), bytes.size(), offset);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count == 0 || (count < 0 && errno == EIO)) {
            throw LostBytes(file.string() + " has lost bytes");
        }
        if (count < 0) {
            failAt("cannot read", file);
        }
        bytes = bytes.subspan(static_cast<size_t>(count));
        offset += count;
    }
}

std::optional<int64_t> FileBlockStore::length(int64_t container) {
    const fs::path file = path(container);
    struct stat status {};
    if (::stat(file.c_str(), &status) == 0) {
        return status.st_size;
    }
    if (errno == ENOENT) {
        requireMarker(folder_);
        return std::nullopt;
    }
    failAt("cannot stat", file);
}

void FileBlockStore::discard(int64_t container, int64_t offset, int64_t length) {
    const FileDescriptor fd = open(path(container), O_WRONLY);
    if (fd && length > 0) {
        // Only saves space: a file system that cannot do it keeps the bytes.
        ::fallocate(fd.get(), FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, offset, length);
    }
}

FileBlockStore::SyncGroup& FileBlockStore::groupOf(int64_t container) {
    return groups_[static_cast<size_t>(container) % groups_.size()];
}

bool FileBlockStore::sync(int64_t container, int64_t length) {
    const fs::path file = path(container);
    const FileDescriptor fd = open(file, O_RDONLY);
    if (!fd) {
        if (errno == ENOENT) {
            requireMarker(folder_);
            return length == 0;
        }
        failAt("cannot open", file);
    }
    struct stat status {};
    if (::fstat(fd.get(), &status) != 0) {
        failAt("cannot stat", file);
    }
    if (status.st_size < length) {
        return false;
    }
    {
        SyncGroup& group = groupOf(container);
        const std::lock_guard lock(group.mutex);
        if (::fsync(fd.get()) != 0) {
            group.refused.insert(container);
        }
        if (group.refused.contains(container)) {
            return false;
        }
    }
    syncFolder(file.parent_path());
    syncFolder(folder_);
    return true;
}

bool FileBlockStore::syncToReadAgain(int64_t container) {
    if (!sync(container, 0)) {
        return false;
    }
    const fs::path file = path(container);
    const FileDescriptor fd = open(file, O_RDONLY);
    if (!fd && errno != ENOENT) {
        failAt("cannot open", file);
    }
    // All of it is on the disk, or counts as such: nothing is lost with what is remembered. Nothing
    // is proven where that stays.
    return !fd || ::posix_fadvise(fd.get(), 0, 0, POSIX_FADV_DONTNEED) == 0;
}

std::vector<int64_t> FileBlockStore::refused() {
    std::vector<int64_t> all;
    for (SyncGroup& group : groups_) {
        const std::lock_guard lock(group.mutex);
        all.insert(all.end(), group.refused.begin(), group.refused.end());
    }
    return all;
}

void FileBlockStore::remove(int64_t container) {
    requireMarker(folder_);
    const fs::path file = path(container);
    // Where it is gone already, the last call may have failed to sync its folder.
    if (::unlink(file.c_str()) != 0 && errno != ENOENT) {
        failAt("cannot remove", file);
    }
    const FileDescriptor parent = open(file.parent_path(), O_RDONLY | O_DIRECTORY);
    if (!parent && errno == ENOENT) {
        return;
    }
    if (!parent || ::fsync(parent.get()) != 0) {
        failAt("cannot sync", file.parent_path());
    }
}

std::vector<FileBlockStore::Found> FileBlockStore::list() const {
    std::vector<Found> found;
    if (!fs::exists(folder_)) {
        return found;
    }
    for (const auto& folder : fs::directory_iterator(folder_)) {
        if (!folder.is_directory()) {
            continue;
        }
        for (const auto& file : fs::directory_iterator(folder)) {
            const std::string name = file.path().stem().string();
            int64_t number = 0;
            std::from_chars(name.data(), name.data() + name.size(), number);
            if (number > 0 && number <= mostContainers && file.path() == path(number) &&
                file.is_regular_file()) {
                found.push_back({number, static_cast<int64_t>(file.file_size())});
            }
        }
    }
    return found;
}

fs::path FileBlockStore::setAside(int64_t container) {
    const fs::path from = path(container);
    for (const fs::path& orphans : {folder_.parent_path() / "orphans", folder_ / "orphans"}) {
        if (makeFolder(orphans)) {
            syncFolder(orphans.parent_path());
        }
        fs::path to = orphans / from.filename();
        for (int copy = 2; fs::exists(to); ++copy) {
            to = orphans / (from.stem().string() + "-" + std::to_string(copy) + ".pkg");
        }
        if (::rename(from.c_str(), to.c_str()) == 0) {
            syncFolder(orphans);
            syncFolder(from.parent_path());
            return to;
        }
        if (errno != EXDEV) {
            break;
        }
    }
    failAt("cannot move aside", from);
}

}  // namespace dorvo
