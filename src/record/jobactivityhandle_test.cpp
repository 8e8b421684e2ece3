#include "record/jobactivityhandle.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "base/files.h"
#include "base/handle.h"
#include "base/paths.h"
#include "base/text.h"
#include "support/fails_with.h"
#include "support/files.h"
#include "support/log_capture.h"

namespace dorvo {
namespace {

using test::LogCapture;

class ActivityFile : public testing::Test {
protected:
    ActivityFile() {
        EXPECT_TRUE(jobDirectory(id_, directory_));
        rm_rf(directory_, true);
        EXPECT_TRUE(createDirectories(directory_));
        info_ = directory_ + L"\\info";
    }

    void writeInfo(const std::string& bytes) const { test::storeFile(info_, bytes); }

    std::string id_ = "activity-1";
    std::wstring directory_;
    std::wstring info_;
    JobActivityHandle handle_;
};

TEST_F(ActivityFile, IsMadeIdle) {
    ASSERT_TRUE(handle_.open(id_.c_str(), true));
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
    EXPECT_FAILS(ERROR_SHARING_VIOLATION, second.open(id_.c_str(), true)) << "one writer at a time";
}

TEST_F(ActivityFile, OfAnUnknownVersionStaysAsItIs) {
    const std::tuple<const char*, std::string, bool> rows[] = {
        {"version 1.0 of another size", {"\0\0\1\0\1\2\0\0", 8}, true},
        {"another version of the size", {"\x9\0\2\0\xb8\0\0\0", 8}, true},
        {"neither", {"\x9\0\2\0\x63\0\0\0", 8}, false},
        // The file grows; what is left of its head says version 1.0.
        {"cut off and damaged", {"\0\0\1", 3}, true},
        {"zeroes but for one byte", std::string(4095, '\0') + '\1', false},
    };
    for (const auto& [name, head, accepted] : rows) {
        const LogCapture quiet;
        writeInfo(head);
        EXPECT_EQ(handle_.open(id_.c_str(), true), accepted) << name;
        EXPECT_NE(handle_.get(), nullptr) << name;
        handle_.close();
        const std::string bytes = test::fileContent(info_);
        EXPECT_EQ(bytes.size(), JobActivity::recordSize) << name;
        EXPECT_TRUE(bytes.starts_with(head)) << name << ": never rewritten";
    }
}

// What a power cut right after its creation leaves must not take the job's life.
TEST_F(ActivityFile, IsMadeAnewWhereItIsBlank) {
    for (const size_t size : {0U, 10U, 4096U}) {
        const LogCapture quiet;
        writeInfo(std::string(size, '\0'));
        EXPECT_TRUE(handle_.open(id_.c_str(), true)) << size;
        JobActivity expected;
        expected.reset(1, true);
        EXPECT_EQ(std::memcmp(handle_.get(), &expected, sizeof(expected)), 0) << size;
        handle_.close();
    }
}

// What others see follows the record, and nothing comes back from there.
TEST_F(ActivityFile, IsSharedAsACopy) {
    ASSERT_TRUE(handle_.open(id_.c_str(), true));
    JobActivityHandle reader;
    ASSERT_TRUE(reader.open(id_.c_str(), false));
    EXPECT_EQ(reader->state, 1);
    EXPECT_TRUE(reader->recognised());
    handle_->state = 3;
    EXPECT_TRUE(handle_.sync());
    EXPECT_EQ(reader->state, 3);
    handle_->doneSize = 7;
    handle_.publish();
    EXPECT_EQ(reader->doneSize, 7U);

    const std::wstring name = L"Global\\job_" + toWide(id_);
    const KernelHandle section(OpenFileMappingW(FILE_MAP_WRITE, FALSE, name.c_str()));
    const MappedView view(MapViewOfFile(section.get(), FILE_MAP_WRITE, 0, 0, 0));
    ASSERT_TRUE(view);
    std::memset(view.get(), 9, JobActivity::recordSize);
    JobActivity record{};
    EXPECT_TRUE(JobActivityHandle::read(id_.c_str(), record));
    for (const JobActivity* own : {&record, handle_.get()}) {
        EXPECT_EQ(own->state, 3);
        EXPECT_TRUE(own->recognised());
    }
}

// Whoever takes the name first gets no hold of the job.
TEST_F(ActivityFile, IsNotSharedInMemoryThatIsNotThere) {
    const std::wstring name = L"Global\\job_" + toWide(id_);
    const KernelHandle reserved(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr,
                                                   PAGE_READWRITE | SEC_RESERVE, 0,
                                                   JobActivity::recordSize, name.c_str()));
    ASSERT_TRUE(reserved);
    const LogCapture quiet;
    ASSERT_TRUE(handle_.open(id_.c_str(), true));
    EXPECT_TRUE(handle_.sync());
    EXPECT_EQ(handle_->state, 1);
}

// As for a console without the right to make names of the machine.
TEST_F(ActivityFile, IsSharedInTheSessionWhereTheMachineRefuses) {
    const std::wstring name = L"job_" + toWide(id_);
    const auto take = [&](const std::wstring& space) {
        return KernelHandle(CreateEventW(nullptr, TRUE, FALSE, (space + name).c_str()));
    };
    const LogCapture quiet;
    const KernelHandle machine = take(L"Global\\");
    JobActivityHandle reader;
    ASSERT_TRUE(handle_.open(id_.c_str(), true));
    ASSERT_TRUE(reader.open(id_.c_str(), false));
    EXPECT_EQ(reader->state, 1);
    reader.close();
    handle_.close();

    const KernelHandle session = take(L"");
    ASSERT_TRUE(handle_.open(id_.c_str(), true)) << "nobody else can see it, and that is all";
    EXPECT_TRUE(handle_.sync());
    EXPECT_FALSE(reader.open(id_.c_str(), false));
}

TEST_F(ActivityFile, IsNotThereWithoutItsDirectory) {
    rm_rf(directory_, true);
    const LogCapture quiet;
    EXPECT_FAILS(ERROR_PATH_NOT_FOUND, handle_.open(id_.c_str(), true));
    EXPECT_FAILS(ERROR_FILE_NOT_FOUND, handle_.open(id_.c_str(), false));
    for (const char* bad : {"..\\activity-1", "", "a/b", static_cast<const char*>(nullptr)}) {
        EXPECT_FALSE(handle_.open(bad, true) || handle_.open(bad, false));
    }
}

TEST_F(ActivityFile, IsCopiedWhetherItIsMappedOrNot) {
    JobActivity record{};
    EXPECT_FAILS(ERROR_FILE_NOT_FOUND, JobActivityHandle::read(id_.c_str(), record));
    ASSERT_TRUE(handle_.open(id_.c_str(), true));
    handle_->fileIndex = 17;
    EXPECT_TRUE(JobActivityHandle::read(id_.c_str(), record)) << "while a process has it mapped";
    EXPECT_EQ(record.fileIndex, 17U);
    handle_.close();
    record.fileIndex = 0;
    EXPECT_TRUE(JobActivityHandle::read(id_.c_str(), record));
    EXPECT_EQ(record.fileIndex, 17U);
    for (const std::string& damaged :
         {std::string(), std::string(4095, '\1'), std::string(4096, '\2')}) {
        writeInfo(damaged);
        EXPECT_FAILS(ERROR_INVALID_DATA, JobActivityHandle::read(id_.c_str(), record))
            << damaged.size();
        EXPECT_EQ(record.fileIndex, 17U) << "left as it was";
    }
}

}  // namespace
}  // namespace dorvo
