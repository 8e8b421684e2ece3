#include "storage/itemfetcher.h"

#include <gtest/gtest.h>

#include <fstream>

#include "base/handle.h"
#include "support/log_capture.h"
#include "support/temporary_folder.h"

namespace dorvo {
namespace {

TEST(StoredBlock, CountsAsDoneWhateverTheDiskTakes) {
    const test::TemporaryFolder folder(L"dorvo-stored-block");
    const std::wstring package = folder.path() + L"\\package";
    std::ofstream(package.c_str()) << "before";
    JobActivity record{};
    ItemProgress progress(&record);
    const std::string bytes = "bytes";
    struct Row {
        DWORD access;
        size_t size;
        uint64_t written;
        DWORD left;
    };
    const Row rows[] = {
        {GENERIC_WRITE, bytes.size(), 5, 0},
        {GENERIC_WRITE, 0, 0, 0},
        {GENERIC_READ, bytes.size(), 0, ERROR_ACCESS_DENIED},
    };
    for (const Row& row : rows) {
        record.fileOffset = 131072;
        record.transferred = 10;
        const FileHandle file(CreateFileW(package.c_str(), row.access, 0, nullptr, OPEN_EXISTING,
                                          FILE_ATTRIBUTE_NORMAL, nullptr));
        test::LogCapture capture;
        SetLastError(1);
        storeBlock(file.get(), std::as_bytes(std::span(bytes)).first(row.size), "C:\\x", 131072,
                   progress);
        EXPECT_EQ(GetLastError(), row.left);
        EXPECT_EQ(record.fileOffset, 131072 + row.written);
        EXPECT_EQ(record.transferred, 10 + row.written);
        EXPECT_EQ(capture.lines().size(), row.left != 0 ? 1u : 0u);
    }
    std::string content;
    std::ifstream(package.c_str()) >> content;
    EXPECT_EQ(content, "bytese");
}

}  // namespace
}  // namespace dorvo
