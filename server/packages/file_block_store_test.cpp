// What the store asks of the disk, and what it makes of a disk that refuses bytes.
#include "packages/file_block_store.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <fstream>
#include <functional>
#include <future>

#include "packages/package_marker.h"
#include "testing/false_disk.h"
#include "testing/temp_folder.h"

namespace dorvo {

namespace {

namespace fs = std::filesystem;

// Whether the thread sleeps, as it does while it waits for a lock.
bool sleeps(pid_t thread) {
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::string text;
    std::getline(file, text);
    return text.find(") S ") != std::string::npos;
}

class FileBlockStoreTest : public testing::Test {
protected:
    FileBlockStoreTest() {
        fs::create_directory(packages);
        writeMarker(packages, {"identity", 1});
    }

    const TempFolder folder;
    const fs::path packages = folder.path() / "packages";
    FileBlockStore blocks{packages};
};

TEST_F(FileBlockStoreTest, KeepsInMindWhatTheDiskHasRefused) {
    blocks.write(1, 0, "bytes");
    blocks.write(2, 0, "bytes");
    blocks.write(65, 0, "of the same group");

    std::promise<pid_t> started;
    std::atomic<bool> told = false;
    std::future<bool> other;
    std::atomic<int> calls = 0;
    const FalseDisk disk([&](int fd) {
        if (FalseDisk::name(fd) != "1.pkg") {
            return 0;
        }
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
    });
    EXPECT_FALSE(blocks.sync(1, 5));
    EXPECT_FALSE(other.get());
    EXPECT_FALSE(blocks.sync(1, 0));
    EXPECT_TRUE(blocks.sync(2, 5));
    EXPECT_TRUE(blocks.sync(65, 5));
}

TEST_F(FileBlockStoreTest, ReadsAgainFromTheDiskOrSaysThatItCannot) {
    blocks.write(1, 0, "bytes");
    EXPECT_TRUE(blocks.syncToReadAgain(1));
    EXPECT_TRUE(blocks.syncToReadAgain(2));  // of which nothing is remembered
    const fs::path file = packages / "01" / "1.pkg";
    const FalseDisk vanishing([&](int) {
        fs::remove(file);
        fs::create_symlink(file, file);
        return 0;
    });
    EXPECT_THROW(static_cast<void>(blocks.syncToReadAgain(1)), std::exception);
}

TEST_F(FileBlockStoreTest, SyncsTheFoldersOfWhatItMovesAndRemoves) {
    blocks.write(1, 0, "bytes");
    blocks.write(2, 0, "bytes");
    std::string synced;
    const FalseDisk disk([&](int fd) {
        const std::string name = FalseDisk::name(fd);
        synced += name + (fs::exists(packages / "02" / "2.pkg") ? " before " : " ");
        return 0;
    });
    EXPECT_EQ(blocks.setAside(2), folder.path() / "orphans" / "2.pkg");
    const std::string made = folder.path().filename().string() + " before ";
    EXPECT_EQ(synced, made + "orphans 02 ");
    synced.clear();
    blocks.remove(1);
    EXPECT_EQ(synced, "01 ");
    EXPECT_FALSE(fs::exists(packages / "01" / "1.pkg"));
    synced.clear();
    blocks.remove(1);  // as after a first time that was not synced
    blocks.remove(3);  // has no folder
    EXPECT_EQ(synced, "01 ");
    synced.clear();
    writeMarker(packages, {"identity", 2});
    updateMarker(packages, {"identity", 3});
    EXPECT_EQ(synced, "marker packages marker ");
}

}  // namespace

}  // namespace dorvo
