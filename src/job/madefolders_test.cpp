// What a killed run, or a full disk, leaves of the folders that a restore has made.
#include "job/madefolders.h"

#include <gtest/gtest.h>

#include "support/store_test.h"

namespace dorvo {
namespace {

class MadeFoldersTest : public test::StoreTest {
protected:
    // The numbers on record, up to 9.
    std::string numbers() const {
        const std::vector<bool> made = MadeFolders(path_).all(9);
        std::string text;
        for (size_t number = 0; number < made.size(); ++number) {
            text += made[number] ? std::to_string(number) + " " : "";
        }
        return text;
    }

    const std::wstring path_ = madeFoldersPath(dataPath(L"\\job\\j1\\src"));
};

TEST_F(MadeFoldersTest, AreKnownToTheNextProcess) {
    EXPECT_TRUE(MadeFolders::forget(path_)) << "of what was never there";
    {
        MadeFolders made(path_);
        EXPECT_EQ(made.last(), 0u);
        EXPECT_TRUE(made.add(2) && made.add(4) && made.add(4));
        EXPECT_EQ(numbers(), "2 4 ") << "a process may be killed now";
    }
    {
        MadeFolders made(path_);
        EXPECT_EQ(made.last(), 4u);
        EXPECT_TRUE(made.add(7) && made.add(4'000'000'000));
    }
    EXPECT_EQ(contentOf(path_).size(), size_t{4} * 4);
    EXPECT_EQ(numbers(), "2 4 7 ");
    EXPECT_TRUE(MadeFolders::forget(path_));
    EXPECT_EQ(numbers(), "");
}

TEST_F(MadeFoldersTest, AreWrittenBehindTheLastWholeNumber) {
    for (size_t torn = 1; torn < 4; ++torn) {
        SCOPED_TRACE(torn);
        MadeFolders::forget(path_);
        ASSERT_TRUE(MadeFolders(path_).add(3));
        write(path_, contentOf(path_) + std::string(torn, '\1'));
        EXPECT_EQ(numbers(), "3 ");
        EXPECT_EQ(MadeFolders(path_).last(), 3u);
        EXPECT_TRUE(MadeFolders(path_).add(5));
        EXPECT_EQ(numbers(), "3 5 ");
    }
}

TEST_F(MadeFoldersTest, WithoutTheirFileNothingMayBeMade) {
    createDirectories(path_);
    MadeFolders made(path_);
    EXPECT_FALSE(made.add(1));
    EXPECT_FALSE(MadeFolders::forget(path_));
}

}  // namespace
}  // namespace dorvo
