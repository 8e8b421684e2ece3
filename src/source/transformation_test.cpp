// Backup and restore transformations against each other, against known packages and against
// everything that can break them off.
#include "source/transformation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <thread>

#include "base/handle.h"
#include "base/last_error.h"
#include "base/text.h"
#include "support/fails_with.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "support/temporary_folder.h"

namespace dorvo {
namespace {

using test::fileContent;
using test::storeFile;

constexpr size_t mebibyte = 1 << 20;

void setKey(Transformation& transformation) {
    for (uint8_t i = 0; i < 16; ++i) {
        transformation.key[i] = i;
        transformation.iv[i] = static_cast<uint8_t>(0xF0 + i);
    }
}

std::string randomBytes(size_t size) {
    std::mt19937 generator(12345);
    std::string bytes(size, '\0');
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(generator()); });
    return bytes;
}

// Asked to stop at the Nth question, never for 0.
class StopAt : public interrupter {
public:
    explicit StopAt(int question) : question_(question) {}
    bool interrupted() const override { return ++asked == question_; }
    mutable int asked = 0;

private:
    int question_;
};

class Transform : public testing::Test {
protected:
    void SetUp() override {
        source_ = folder_ + L"\\source";
        package_ = folder_ + L"\\package";
        target_ = folder_ + L"\\target";
    }

    bool backup(bool compress, interrupter* stop = nullptr) {
        BackupTransformation transformation(compress);
        setKey(transformation);
        return transformation.transform(source_.c_str(), package_.c_str(), nullptr, stop);
    }
    bool restore(bool compress, interrupter* stop = nullptr) {
        RestoreTransformation transformation(compress);
        setKey(transformation);
        return transformation.transform(package_.c_str(), target_.c_str(), nullptr, stop);
    }

    test::TemporaryFolder ground_{L"dorvo_transform"};
    const std::wstring& folder_ = ground_.path();
    std::wstring source_;
    std::wstring package_;
    std::wstring target_;
};

std::string hex(const std::string& bytes) {
    static const char digits[] = "0123456789abcdef";
    std::string text;
    for (const char c : bytes) {
        text += digits[static_cast<unsigned char>(c) >> 4];
        text += digits[static_cast<unsigned char>(c) & 15];
    }
    return text;
}

// The worked examples of docs/formats/package.md.
TEST_F(Transform, PackagesAreAsDocumented) {
    const std::pair<bool, const char*> rows[] = {
        {false, "c18bebea28cafa45cd02494d485ddacedc2b91dd6fdd555d548de18bfecbe45f"},
        {true, "5d332b8653a8ca123fcfe382e52987af821d49bd784f3a0e19df3319519fb70c"},
    };
    storeFile(source_, "Hello, hello, hello, hello!\n");
    for (const auto& [compress, package] : rows) {
        ASSERT_TRUE(backup(compress));
        EXPECT_EQ(hex(fileContent(package_)), package);
    }
}

TEST_F(Transform, BytesBehindTheContentAreDamage) {
    storeFile(source_, randomBytes(20'000));
    for (const char* behind :
         {"", "x", "sixteen bytes ..", "78 9c and many more bytes than a block"}) {
        ASSERT_TRUE(backup(true));
        // The compressed content with more behind it, packed again as it is.
        ASSERT_TRUE(restore(false));
        const std::string content = fileContent(source_);
        storeFile(source_, fileContent(target_) + behind);
        ASSERT_TRUE(backup(false));
        storeFile(source_, content);
        EXPECT_EQ(restore(true), *behind == '\0') << behind;
        if (*behind == '\0') {
            EXPECT_EQ(fileContent(target_), content);
        } else {
            EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_DATA});
        }
    }
}

TEST_F(Transform, EachSideHasItsWordsForATargetThatCannotBe) {
    storeFile(source_, "content");
    ASSERT_TRUE(backup(true));
    const test::LogCapture log;
    package_ = folder_ + L"\\no\\package";
    EXPECT_FALSE(backup(true));
    const std::string reason = errorText(ERROR_PATH_NOT_FOUND);
    EXPECT_TRUE(log.has("Failed to open target " + toUtf8(package_) + ", " + reason + "\n"));
    package_ = folder_ + L"\\package";
    target_ = folder_ + L"\\no\\target";
    EXPECT_FALSE(restore(true));
    EXPECT_TRUE(log.has("Failed to open target " + toUtf8(target_) + ", " + reason + ".\n"));
}

TEST_F(Transform, ADamagedPackageOrAWrongKeyFails) {
    const std::string bytes = randomBytes(20'000);
    storeFile(source_, bytes);
    for (const bool compress : {false, true}) {
        ASSERT_TRUE(backup(compress));
        const std::string whole = fileContent(package_);
        std::string flipped = whole;
        flipped[flipped.size() / 2] = static_cast<char>(flipped[flipped.size() / 2] ^ 1);
        const std::tuple<const char*, std::string, bool> rows[] = {
            {"empty", "", true},
            {"half a block less", whole.substr(0, whole.size() - 8), true},
            {"a block less", whole.substr(0, whole.size() - 16), true},
            // Without compression nothing in a package tells of a change in its middle.
            {"a flipped bit", flipped, false},
        };
        for (const auto& [what, package, failsPlain] : rows) {
            SCOPED_TRACE(what + std::string(compress ? " compressed" : ""));
            test::LogCapture log;
            storeFile(package_, package);
            const bool fails = compress || failsPlain;
            EXPECT_EQ(restore(compress), !fails);
            if (fails) {
                EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_DATA});
                EXPECT_EQ(log.lines().size(), 1u);
            }
        }
        storeFile(package_, whole);
        RestoreTransformation unset(compress);
        EXPECT_FAILS(ERROR_INVALID_DATA,
                     unset.transform(package_.c_str(), target_.c_str(), nullptr, nullptr));
    }
}

TEST_F(Transform, AStopIsHonouredEveryTwoMebibytes) {
    const struct {
        size_t size;
        int stopAt;
        int asked;
        bool done;
    } rows[] = {
        {mebibyte, 1, 0, true},      {2 * mebibyte - 1, 1, 0, true}, {5 * mebibyte, 0, 2, true},
        {5 * mebibyte, 1, 1, false}, {5 * mebibyte, 2, 2, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.size);
        test::LogCapture log;
        storeFile(source_, std::string(row.size, 'x'));
        StopAt stop(row.stopAt);
        EXPECT_EQ(backup(false, &stop), row.done);
        EXPECT_EQ(stop.asked, row.asked);
        EXPECT_EQ(GetLastError(), row.done ? DWORD{ERROR_SUCCESS} : DWORD{ERROR_CANCELLED});
        EXPECT_EQ(log.lines().size(), row.done ? 0u : 1u);
    }
    ASSERT_TRUE(backup(false));
    StopAt stop(1);
    EXPECT_FAILS(ERROR_CANCELLED, restore(false, &stop));
}

TEST_F(Transform, WhatCannotBeOpenedFails) {
    test::LogCapture log;
    SetLastError(0);
    EXPECT_FAILS(ERROR_FILE_NOT_FOUND, backup(true));
    EXPECT_FAILS(ERROR_FILE_NOT_FOUND, restore(true));
    storeFile(source_, "x");
    target_ = package_ = folder_ + L"\\none\\file";
    EXPECT_FAILS(ERROR_PATH_NOT_FOUND, backup(true));
    package_ = source_;
    EXPECT_FAILS(ERROR_PATH_NOT_FOUND, restore(true));
    EXPECT_EQ(log.lines().size(), 4u);
}

// A pipe whose other end goes away while it is read stands for a disk that fails.
TEST_F(Transform, ASourceThatFailsMidwayIsNoShortPackage) {
    const wchar_t* const name = L"\\\\.\\pipe\\dorvo_transform_test";
    const FileHandle pipe(CreateNamedPipeW(name, PIPE_ACCESS_OUTBOUND, PIPE_TYPE_BYTE, 1, 65'536,
                                           65'536, 0, nullptr));
    ASSERT_TRUE(pipe);
    std::thread writer([&] {
        ConnectNamedPipe(pipe.get(), nullptr);
        const std::string bytes(20'000, 'x');
        DWORD written = 0;
        WriteFile(pipe.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
        FlushFileBuffers(pipe.get());
        DisconnectNamedPipe(pipe.get());
    });
    const test::LogCapture quiet;
    BackupTransformation transformation(true);
    EXPECT_FALSE(transformation.transform(name, package_.c_str(), nullptr, nullptr));
    const DWORD error = GetLastError();
    writer.join();
    EXPECT_TRUE(error == ERROR_PIPE_NOT_CONNECTED || error == ERROR_BROKEN_PIPE) << error;
}

// Wine lends a device that is always full; Windows has no such path and fails at the opening.
TEST_F(Transform, AFullDiskIsAFailure) {
    test::LogCapture log;
    storeFile(source_, randomBytes(100'000));
    BackupTransformation transformation(false);
    EXPECT_FAILS(
        ERROR_DISK_FULL,
        transformation.transform(source_.c_str(), L"\\\\?\\unix\\dev\\full", nullptr, nullptr));
    // What fits into the buffers fails no less.
    storeFile(source_, "x");
    EXPECT_FAILS(
        ERROR_DISK_FULL,
        transformation.transform(source_.c_str(), L"\\\\?\\unix\\dev\\full", nullptr, nullptr));
}

// The same bytes as in a file of the caller's, read from anywhere, and of the next item when it is
// used again.
TEST_F(Transform, APackageIsInMemoryOrInItsFile) {
    BackupTransformation transformation(false);
    setKey(transformation);
    ItemPackage package;
    constexpr size_t most = ItemPackage::mostInMemory;
    for (const size_t size : {size_t{0}, most - 16, most - 1, most, 3 * most + 5, size_t{7}}) {
        SCOPED_TRACE(size);
        storeFile(source_, randomBytes(size));
        ASSERT_TRUE(backup(false));
        const std::string whole = fileContent(package_);
        const std::wstring file = folder_ + L"\\" + std::to_wstring(size);
        if (whole.size() > most) {
            storeFile(file, std::string(whole.size() + 1, 'x'));  // of a process that was killed
        }
        package.begin(file);
        ASSERT_TRUE(transformation.transform(source_.c_str(), package, nullptr));
        EXPECT_EQ(GetFileAttributesW(file.c_str()) != INVALID_FILE_ATTRIBUTES, whole.size() > most);
        uint64_t measured = 0;
        ASSERT_TRUE(package.measure(measured));
        ASSERT_EQ(measured, whole.size());
        for (const size_t from : {size_t{0}, whole.size() / 2, whole.size()}) {
            ItemPackage::Reader reader = package.open();
            ASSERT_TRUE(reader && reader.seek(from));
            std::string read(whole.size() + 1, '\0');
            DWORD got = 0;
            ASSERT_TRUE(reader.read(std::as_writable_bytes(std::span(read)), got));
            EXPECT_TRUE(read.substr(0, got) == whole.substr(from));
            EXPECT_TRUE(reader.read(std::as_writable_bytes(std::span(read)), got) && got == 0);
        }
        if (size == 3 * most + 5) {
            ASSERT_TRUE(DeleteFileW(file.c_str()));
            EXPECT_FAILS(ERROR_FILE_NOT_FOUND, package.measure(measured));
            EXPECT_FALSE(package.open());
            EXPECT_FAILS(ERROR_FILE_NOT_FOUND, package.remove());
            EXPECT_TRUE(package.remove());
        } else {
            EXPECT_TRUE(package.remove());
        }
    }
    storeFile(source_, randomBytes(2 * most));
    const std::pair<const wchar_t*, DWORD> rows[] = {
        {L"\\\\?\\unix\\dev\\full", ERROR_DISK_FULL},
        {L"C:\\no such folder\\1", ERROR_PATH_NOT_FOUND},
    };
    const test::LogCapture quiet;
    for (const auto& [path, error] : rows) {
        package.begin(path);
        EXPECT_FAILS(error, transformation.transform(source_.c_str(), package, nullptr));
    }
    package.begin(folder_ + L"\\again");
    EXPECT_TRUE(transformation.transform(source_.c_str(), package, nullptr));
}

}  // namespace
}  // namespace dorvo
