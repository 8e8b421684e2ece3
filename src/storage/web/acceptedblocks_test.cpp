#include "storage/web/acceptedblocks.h"

#include <gtest/gtest.h>

#include <span>

#include "base/md5.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "support/temporary_folder.h"

namespace dorvo::test {
namespace {

// The example of docs/formats/accepted-blocks.md.
AcceptedBlocks example() {
    AcceptedBlocks blocks("11111111-1111-1111-1111-111111111111\nC:\\a.txt\n262160");
    for (const char byte : {'a', 'b'}) {
        const std::string block(131072, byte);
        blocks.add(Md5::of(std::as_bytes(std::span(block))));
    }
    return blocks;
}

TEST(AcceptedBlocks, AreKeptAsTheExampleSays) {
    const TemporaryFolder job(L"accepted");
    ASSERT_TRUE(AcceptedBlocksFile(job.path()).save(example()));
    const std::string bytes = fileContent(job.path() + L"\\act\\accepted");
    EXPECT_EQ(bytes, std::string("\1\0\0\0\2\0\0\0", 8) + "d4a31da4652e7e1913f51a4a89393dd4");
    EXPECT_EQ(AcceptedBlocksFile(job.path()).load(), example());
    // Over and over in one place.
    AcceptedBlocksFile file(job.path());
    AcceptedBlocks more = example();
    more.add("of another block");
    EXPECT_TRUE(file.save(more));
    EXPECT_TRUE(file.save(example()));
    EXPECT_EQ(file.load(), example());
    EXPECT_EQ(file.load(), example());
    EXPECT_TRUE(file.forget());
    EXPECT_EQ(file.load().count(), 0u);
}

TEST(AcceptedBlocks, OfADamagedFileAreOthers) {
    const TemporaryFolder job(L"accepted");
    const std::wstring path = job.path() + L"\\act\\accepted";
    AcceptedBlocksFile(job.path()).save(example());
    const std::string whole = fileContent(path);
    for (size_t i = 0; i < whole.size(); ++i) {
        storeFile(path, whole.substr(0, i));
        EXPECT_NE(AcceptedBlocksFile(job.path()).load(), example()) << "cut off at " << i;
        std::string changed = whole;
        changed[i] = static_cast<char>(changed[i] ^ 1);
        storeFile(path, changed);
        EXPECT_NE(AcceptedBlocksFile(job.path()).load(), example()) << "changed at " << i;
    }
}

TEST(AcceptedBlocks, ThatCannotBeKeptAreSaidOnce) {
    const TemporaryFolder job(L"accepted");
    createDirectories(job.path() + L"\\act\\accepted");
    const LogCapture log;
    AcceptedBlocksFile file(job.path());
    EXPECT_FALSE(file.save(example()));
    EXPECT_FALSE(file.save(example()));
    EXPECT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(file.load().count(), 0u);
}

}  // namespace
}  // namespace dorvo::test
