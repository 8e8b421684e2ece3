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
    bool backup(bool compress, interrupter* stop = nullptr) {
        return transform(BackupTransformation(compress), source_, package_, stop);
    }
    bool restore(bool compress, interrupter* stop = nullptr) {
        return transform(RestoreTransformation(compress), package_, target_, stop);
    }
    static bool transform(Transformation&& by, const std::wstring& from, const std::wstring& to,
                          interrupter* stop, const WIN32_FILE_ATTRIBUTE_DATA* data = nullptr) {
        setKey(by);
        return by.transform(from.c_str(), to.c_str(), data, stop);
    }

    test::TemporaryFolder ground_{L"dorvo_transform"};
    const std::wstring& folder_ = ground_.path();
    std::wstring source_ = folder_ + L"\\source";
    std::wstring package_ = folder_ + L"\\package";
    std::wstring target_ = folder_ + L"\\target";
};

// The worked examples of docs/formats/package.md.
TEST_F(Transform, PackagesAreAsDocumented) {
    const std::pair<bool, std::string> rows[] = {
        {false,
         "\xc1\x8b\xeb\xea\x28\xca\xfa\x45\xcd\x02\x49\x4d\x48\x5d\xda\xce"
         "\xdc\x2b\x91\xdd\x6f\xdd\x55\x5d\x54\x8d\xe1\x8b\xfe\xcb\xe4\x5f"},
        {true,
         "\x5d\x33\x2b\x86\x53\xa8\xca\x12\x3f\xcf\xe3\x82\xe5\x29\x87\xaf"
         "\x82\x1d\x49\xbd\x78\x4f\x3a\x0e\x19\xdf\x33\x19\x51\x9f\xb7\x0c"},
    };
    storeFile(source_, "Hello, hello, hello, hello!\n");
    for (const auto& [compress, package] : rows) {
        ASSERT_TRUE(backup(compress));
        EXPECT_EQ(fileContent(package_), package);
    }
}

TEST_F(Transform, BytesBehindTheContentAreDamage) {
    const std::string content = randomBytes(20'000);
    for (const char* behind :
         {"", "x", "sixteen bytes ..", "78 9c and many more bytes than a block"}) {
        storeFile(source_, content);
        ASSERT_TRUE(backup(true));
        // The compressed content with more behind it, packed again as it is.
        ASSERT_TRUE(restore(false));
        storeFile(source_, fileContent(target_) + behind);
        ASSERT_TRUE(backup(false));
        if (*behind == '\0') {
            ASSERT_TRUE(restore(true));
            EXPECT_EQ(fileContent(target_), content);
        } else {
            EXPECT_FAILS(ERROR_INVALID_DATA, restore(true)) << behind;
        }
    }
}

TEST_F(Transform, ADamagedPackageOrAWrongKeyFails) {
    storeFile(source_, randomBytes(20'000));
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

TEST_F(Transform, ARestoredFileGetsTheAttributesAndTimesThatAreGiven) {
    storeFile(source_, "x");
    ASSERT_TRUE(backup(false));
    const WIN32_FILE_ATTRIBUTE_DATA given = {
        FILE_ATTRIBUTE_READONLY, {0, 1u << 24}, {0, 2u << 24}, {0, 3u << 24}, 0, 0};
    EXPECT_TRUE(transform(RestoreTransformation(false), package_, target_, nullptr, &given));
    const WIN32_FILE_ATTRIBUTE_DATA got = test::dataOf(target_);
    EXPECT_EQ(got.dwFileAttributes & FILE_ATTRIBUTE_READONLY, given.dwFileAttributes);
    EXPECT_EQ(CompareFileTime(&got.ftLastWriteTime, &given.ftLastWriteTime), 0);
    EXPECT_EQ(CompareFileTime(&got.ftLastAccessTime, &given.ftLastAccessTime), 0);
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

TEST_F(Transform, EachSideHasItsWordsForWhatCannotBeOpened) {
    const std::wstring none = folder_ + L"\\none\\file";
    storeFile(source_, "x");
    BackupTransformation pack;
    RestoreTransformation unpack(true);
    const struct {
        Transformation& by;
        const std::wstring& source;
        const std::wstring& target;
        DWORD error;
        const char* words;
        const char* end;
    } rows[] = {
        {pack, package_, target_, ERROR_FILE_NOT_FOUND, "Failed to open source ", "\n"},
        {unpack, package_, target_, ERROR_FILE_NOT_FOUND, "Failed to target file ", ".\n"},
        {pack, source_, none, ERROR_PATH_NOT_FOUND, "Failed to open target ", "\n"},
        {unpack, source_, none, ERROR_PATH_NOT_FOUND, "Failed to open target ", ".\n"},
    };
    for (const auto& row : rows) {
        const test::LogCapture log;
        EXPECT_FAILS(row.error,
                     row.by.transform(row.source.c_str(), row.target.c_str(), nullptr, nullptr));
        const bool target = row.error == ERROR_PATH_NOT_FOUND;
        EXPECT_EQ(log.lines().at(0).text, row.words + toUtf8(target ? row.target : row.source) +
                                              ", " + errorText(row.error) + row.end);
    }
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
    source_ = name;
    EXPECT_FALSE(backup(true));
    const DWORD error = GetLastError();
    writer.join();
    EXPECT_TRUE(error == ERROR_PIPE_NOT_CONNECTED || error == ERROR_BROKEN_PIPE) << error;
}

// Wine lends a device that is always full; Windows has no such path and fails at the opening.
TEST_F(Transform, AFullDiskIsAFailure) {
    const test::LogCapture quiet;
    package_ = L"\\\\?\\unix\\dev\\full";
    for (const size_t size : {size_t{1}, size_t{100'000}}) {  // the first fits into the buffers
        storeFile(source_, randomBytes(size));
        EXPECT_FAILS(ERROR_DISK_FULL, backup(false));
    }
    // What was not written by then does not hide the stop.
    storeFile(source_, std::string(3 * mebibyte, 'x'));
    StopAt stop(1);
    EXPECT_FAILS(ERROR_CANCELLED, backup(true, &stop));
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
    test::LogCapture log;
    for (const auto& [path, error] : rows) {
        package.begin(path);
        EXPECT_FAILS(error, transformation.transform(source_.c_str(), package, nullptr));
        EXPECT_EQ(log.has("Failed to open target " + toUtf8(path) + ", " + errorText(error) + "\n"),
                  error == ERROR_PATH_NOT_FOUND);
    }
    package.begin(folder_ + L"\\again");
    EXPECT_TRUE(transformation.transform(source_.c_str(), package, nullptr));
}

}  // namespace
}  // namespace dorvo
