#include "job/activity/jobactivityhandle.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "base/error_text.h"
#include "base/paths.h"
#include "base/rm_rf.h"
#include "support/child_process.h"
#include "support/log_capture.h"
#include "support/signal.h"

namespace dorvo {
namespace {

using test::ChildProcess;
using test::LogCapture;
using test::Signal;

class ActivityFile : public testing::Test {
protected:
    ActivityFile() {
        EXPECT_TRUE(jobDirectory(id_, directory_));
        rm_rf(directory_, true);
        EXPECT_TRUE(createDirectories(directory_));
    }

    std::wstring info() const { return directory_ + L"\\info"; }
    void writeInfo(const std::vector<char>& bytes) const {
        const FileHandle file(CreateFileW(info().c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                          FILE_ATTRIBUTE_NORMAL, nullptr));
        DWORD written = 0;
        WriteFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
        ASSERT_EQ(written, bytes.size());
    }
    std::vector<char> readInfo() const {
        const FileHandle file(CreateFileW(info().c_str(), GENERIC_READ,
                                          FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                          nullptr, OPEN_EXISTING, 0, nullptr));
        std::vector<char> bytes(2 * JobActivity::recordSize);
        DWORD length = 0;
        EXPECT_TRUE(
            ReadFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &length, nullptr));
        bytes.resize(length);
        return bytes;
    }

    std::string id_ = "activity-1";
    std::wstring directory_;
    JobActivityHandle handle_;
};

TEST_F(ActivityFile, IsMadeIdle) {
    const LogCapture log;
    ASSERT_TRUE(handle_.open(id_.c_str(), true));
    EXPECT_TRUE(log.has(LogLevel::information,
                        "New created job activity file, reset the job state to JS_IDLE.\n"));
    JobActivity expected;
    expected.reset(1, true);
    EXPECT_EQ(std::memcmp(handle_.get(), &expected, sizeof(expected)), 0);
    handle_->state = 6;
    handle_->currentFilePath(L"C:\\a");
    EXPECT_TRUE(handle_.sync());
    handle_.close();
    EXPECT_FALSE(handle_.sync());
    EXPECT_EQ(handle_.get(), nullptr);

    ASSERT_TRUE(handle_.open(id_.c_str(), true)) << "what is there is taken up";
    EXPECT_EQ(handle_->state, 6);
    EXPECT_EQ(handle_->currentFilePath(), L"C:\\a");
    JobActivityHandle second;
    EXPECT_FALSE(second.open(id_.c_str(), true)) << "one writer at a time";
    EXPECT_EQ(GetLastError(), DWORD{ERROR_SHARING_VIOLATION});
}

TEST_F(ActivityFile, OfAnUnknownVersionStaysAsItIs) {
    struct Row {
        const char* name;
        std::vector<char> head;
        bool accepted;
        const char* line;
    };
    const Row rows[] = {
        {"version 1.0 of another size", {0, 0, 1, 0, 1, 2, 0, 0}, true, nullptr},
        {"another version of the size", {9, 0, 2, 0, char(184), 0, 0, 0}, true, nullptr},
        {"neither",
         {9, 0, 2, 0, 99, 0, 0, 0},
         false,
         "Unrecognize job {activity-1} activity info file version 2.9, base size 99.\n"},
        {"cut off and damaged",
         {0, 0, 1},
         true,
         nullptr},  // the file grows; what is left of its head says version 1.0
        {"zeroes", std::vector<char>(4096), false,
         "Unrecognize job {activity-1} activity info file version 0.0, base size 0.\n"},
        {"a file without a byte is new", {}, true, nullptr},
    };
    for (const Row& row : rows) {
        const LogCapture log;
        writeInfo(row.head);
        EXPECT_EQ(handle_.open(id_.c_str(), true), row.accepted) << row.name;
        EXPECT_NE(handle_.get(), nullptr) << row.name;
        if (row.line != nullptr) {
            EXPECT_TRUE(log.has(LogLevel::error, row.line)) << row.name;
        }
        handle_.close();
        std::vector<char> bytes = readInfo();
        EXPECT_EQ(bytes.size(), JobActivity::recordSize) << row.name;
        bytes.resize(row.head.size());
        EXPECT_EQ(bytes, row.head) << row.name << ": never rewritten";
    }
}

TEST_F(ActivityFile, IsNotThereWithoutItsDirectory) {
    rm_rf(directory_, true);
    LogCapture log;
    EXPECT_FALSE(handle_.open(id_.c_str(), true));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_PATH_NOT_FOUND});
    EXPECT_TRUE(log.has(LogLevel::error, "Failed to open job {activity-1} activity info file, " +
                                             errorText(ERROR_PATH_NOT_FOUND) + ".\n"));
    EXPECT_FALSE(handle_.open(id_.c_str(), false));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
    EXPECT_TRUE(
        log.has(LogLevel::error, "Failed to open job {activity-1} activity info file mapping, " +
                                     errorText(ERROR_FILE_NOT_FOUND)));
    for (const char* bad : {"..\\activity-1", "", "a/b", static_cast<const char*>(nullptr)}) {
        EXPECT_FALSE(handle_.open(bad, true));
        EXPECT_FALSE(handle_.open(bad, false));
    }
}

TEST_F(ActivityFile, IsCopiedWhetherItIsMappedOrNot) {
    JobActivity record{};
    EXPECT_FALSE(JobActivityHandle::read(id_.c_str(), record));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
    ASSERT_TRUE(handle_.open(id_.c_str(), true));
    handle_->fileIndex = 17;
    EXPECT_TRUE(JobActivityHandle::read(id_.c_str(), record)) << "while a process has it mapped";
    EXPECT_EQ(record.fileIndex, 17U);
    handle_.close();
    record.fileIndex = 0;
    EXPECT_TRUE(JobActivityHandle::read(id_.c_str(), record));
    EXPECT_EQ(record.fileIndex, 17U);
    for (const std::vector<char>& damaged :
         {std::vector<char>(), std::vector<char>(4095, 1), std::vector<char>(4096, 2)}) {
        writeInfo(damaged);
        EXPECT_FALSE(JobActivityHandle::read(id_.c_str(), record)) << damaged.size();
        EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_DATA});
        EXPECT_EQ(record.fileIndex, 17U) << "left as it was";
    }
}

// Runs in a second process; its argument is the job's id.
TEST(ActivityReader, DISABLED_FollowsARunningJob) {
    Signal seen("activity-seen");
    const Signal changed("activity-changed");
    JobActivityHandle reader;
    ASSERT_TRUE(reader.open(test::childArgument().c_str(), false));
    EXPECT_EQ(reader->state, 3);
    EXPECT_EQ(reader->currentFilePath(), L"C:\\one");
    seen.set();
    ASSERT_TRUE(changed.wait());
    EXPECT_EQ(reader->state, 6);
    EXPECT_EQ(reader->currentFilePath(), L"C:\\two");
}

TEST_F(ActivityFile, IsFollowedFromAnotherProcess) {
    const Signal seen("activity-seen");
    Signal changed("activity-changed");
    ASSERT_TRUE(handle_.open(id_.c_str(), true));
    handle_->state = 3;
    handle_->currentFilePath(L"C:\\one");
    ChildProcess reader("ActivityReader.DISABLED_FollowsARunningJob", id_);
    ASSERT_TRUE(seen.wait());
    handle_->currentFilePath(L"C:\\two");
    handle_->state = 6;
    changed.set();
    EXPECT_TRUE(reader.passed());
}

// Runs in a second process until it is killed.
TEST(ActivityWriter, DISABLED_RunsUntilItIsKilled) {
    Signal written("activity-written");
    JobActivityHandle writer;
    ASSERT_TRUE(writer.open(test::childArgument().c_str(), true));
    writer.reset(3, true);
    writer->sourcePosition = 4711;
    EXPECT_TRUE(writer.sync());
    written.set();
    Signal("activity-never").wait();
}

// Wine keeps unflushed pages too; that flushed ones survive a power cut only Windows can show.
TEST_F(ActivityFile, SurvivesTheEndOfItsProcess) {
    const Signal written("activity-written");
    ChildProcess writer("ActivityWriter.DISABLED_RunsUntilItIsKilled", id_);
    ASSERT_TRUE(written.wait());
    EXPECT_FALSE(handle_.open(id_.c_str(), true)) << "it is in use";
    writer.kill();
    ASSERT_TRUE(handle_.open(id_.c_str(), true));
    EXPECT_EQ(handle_->state, 3);
    EXPECT_EQ(handle_->sourcePosition, 4711U);
}

}  // namespace
}  // namespace dorvo
