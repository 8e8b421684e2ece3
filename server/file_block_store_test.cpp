// What the store makes of a disk that refuses bytes. The disk is a false fsync() of this program.
#include "file_block_store.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <fstream>
#include <functional>
#include <future>

#include "package_marker.h"
#include "testing/temp_folder.h"

namespace {

// What fsync() does meanwhile, on the caller's thread.
std::function<int()> disk;

}  // namespace

// Stands in for the system's in all of the program, the database's calls included.
extern "C" int fsync(int fd) {
    return disk ? disk() : static_cast<int>(::syscall(SYS_fsync, fd));
}

namespace dorvo {

namespace {

// Whether the thread sleeps, as it does while it waits for a lock.
bool sleeps(pid_t thread) {
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::string text;
    std::getline(file, text);
    return text.find(") S ") != std::string::npos;
}

TEST(FileBlockStore, KeepsInMindWhatTheDiskHasRefused) {
    const TempFolder folder;
    const auto packages = folder.path() / "packages";
    std::filesystem::create_directory(packages);
    writeMarker(packages, {"identity", 1});
    FileBlockStore blocks(packages);
    blocks.write(1, 0, "bytes");
    blocks.write(2, 0, "bytes");
    blocks.write(65, 0, "of the same group");

    std::promise<pid_t> started;
    std::atomic<bool> told = false;
    std::future<bool> other;
    std::atomic<int> calls = 0;
    disk = [&] {
        if (calls++ > 0) {
            told = true;
            return 0;
        }
        // Somebody else comes for the same container before the first one can have written it down.
        other = std::async(std::launch::async, [&] {
            started.set_value(::gettid());
            return blocks.sync(1, 5);
        });
        const pid_t thread = started.get_future().get();
        while (!told && !sleeps(thread)) {
        }
        errno = EIO;
        return -1;
    };
    EXPECT_FALSE(blocks.sync(1, 5));
    EXPECT_FALSE(other.get());
    EXPECT_FALSE(blocks.sync(1, 0));
    EXPECT_TRUE(blocks.sync(2, 5));
    EXPECT_TRUE(blocks.sync(65, 5));
    disk = nullptr;
}

}  // namespace

}  // namespace dorvo
