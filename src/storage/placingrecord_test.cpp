// What is on record of the file that is on its way to its place, and whose files it lets go.
#include "storage/placingrecord.h"

#include <gtest/gtest.h>

#include "base/paths.h"
#include "storage/restoresibling.h"
#include "support/fails_with.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "support/store_test.h"

namespace dorvo {
namespace {

using test::exists;
using test::storeFile;

constexpr PlacingRecord::Run run = {0xAB, 1, 2, 3, 4, 5, 6};

class Placing : public test::StoreTest {
protected:
    void SetUp() override {
        StoreTest::SetUp();
        ASSERT_TRUE(createDirectories(folder_));
    }
    static FileHandle opened(const std::wstring& path) {
        return FileHandle(CreateFileW(path.c_str(), GENERIC_READ,
                                      FILE_SHARE_READ | FILE_SHARE_DELETE | FILE_SHARE_WRITE,
                                      nullptr, OPEN_EXISTING, 0, nullptr));
    }

    const std::wstring folder_ = dataPath(L"\\target");
    const std::wstring target_ = folder_ + L"\\a.txt";
    const std::wstring sibling_ = siblingPath(target_, run, 17);
    const std::wstring record_ = dataPath(L"\\restoring\\j1");
};

TEST_F(Placing, KnowsItsOwnFileAgain) {
    PlacingRecord first("j1");
    ASSERT_TRUE(first.announce(run, 3, siblingPath(target_ + L"a long, long name", run, 3)));
    ASSERT_TRUE(first.announce(run, 17, sibling_));
    storeFile(sibling_, "new");
    EXPECT_FALSE(PlacingRecord("j1").isPlaced(run, 17)) << "not chosen";
    ASSERT_TRUE(first.choose(target_, opened(sibling_).get()));
    EXPECT_FALSE(PlacingRecord("j1").isPlaced(run, 17)) << "not moved";
    storeFile(target_, "old");
    EXPECT_FALSE(PlacingRecord("j1").isPlaced(run, 17)) << "somebody else's";
    ASSERT_TRUE(MoveFileExW(sibling_.c_str(), target_.c_str(), MOVEFILE_REPLACE_EXISTING));
    EXPECT_TRUE(PlacingRecord("j1").isPlaced(run, 17));
    EXPECT_FALSE(PlacingRecord("j1").isPlaced(run, 18));
    EXPECT_FALSE(PlacingRecord("j1").isPlaced({1}, 17));
    EXPECT_FALSE(PlacingRecord("j2").isPlaced(run, 17));
    ASSERT_TRUE(first.announce(run, 18, sibling_));
    EXPECT_FALSE(PlacingRecord("j1").isPlaced(run, 17));
    EXPECT_FALSE(PlacingRecord("j1").isPlaced(run, 18)) << "that is the former item's file";
}

// Any file of the same size and time would pass for the run's own.
TEST_F(Placing, NotesNothingWhereTheDiskDoesNotTellFilesApart) {
    static DWORD half;
    for (const auto& [index, placed] :
         {std::pair{DWORD{0}, false}, {~DWORD{0}, false}, {DWORD{1}, true}}) {
        SCOPED_TRACE(index);
        half = index;
        const PlacingRecord::Look look = [](HANDLE file, BY_HANDLE_FILE_INFORMATION* found) {
            const BOOL looked = GetFileInformationByHandle(file, found);
            found->nFileIndexHigh = found->nFileIndexLow = half;
            return looked;
        };
        PlacingRecord record("j1", look);
        ASSERT_TRUE(record.announce(run, 17, sibling_));
        storeFile(sibling_, "new");
        ASSERT_TRUE(record.choose(target_, opened(sibling_).get()));
        ASSERT_TRUE(MoveFileExW(sibling_.c_str(), target_.c_str(), MOVEFILE_REPLACE_EXISTING));
        EXPECT_EQ(PlacingRecord("j1", look).isPlaced(run, 17), placed);
    }
}

TEST_F(Placing, RemovesSiblingsOfItsRunAndNothingElse) {
    const auto name = [&](const wchar_t* text) { return folder_ + L"\\" + text; };
    const std::wstring ours[] = {sibling_, siblingPath(target_, run, 4)};
    const std::wstring others[] = {siblingPath(target_, {9}, 17), name(L"~ab0102030405-17.tmp.x"),
                                   name(L"~ab0102030405-.tmp"),   name(L"~ab0102030405-1a.tmp"),
                                   name(L"ab0102030405-17.tmp"),  name(L"~ab0102030405-17.txt")};
    const std::wstring directory = siblingPath(target_, run, 5);
    for (const auto& path : ours) {
        storeFile(path, "half a fi");
    }
    SetFileAttributesW(sibling_.c_str(), FILE_ATTRIBUTE_READONLY);
    for (const auto& path : others) {
        storeFile(path, "mine");
    }
    ASSERT_TRUE(createDirectories(directory));
    ASSERT_TRUE(PlacingRecord("j1").announce(run, 17, sibling_));
    PlacingRecord next("j1");
    EXPECT_TRUE(next.removeSibling());
    EXPECT_TRUE(exists(record_)) << "a paused run needs it still";
    for (const auto& path : ours) {
        EXPECT_FALSE(exists(path));
    }
    for (const auto& path : others) {
        EXPECT_TRUE(exists(path));
    }
    EXPECT_TRUE(exists(directory));
    // A record that was tampered with names whatever it likes.
    storeFile(record_, R"({"run":"030201ab-0504-0006-0000-000000000000","item":1,"sibling":")" +
                           std::string("C:\\\\") + R"(windows\\win.ini"})");
    PlacingRecord::sweep();
    EXPECT_TRUE(exists(L"C:\\windows\\win.ini"));
}

TEST_F(Placing, WhatCannotGoNowGoesAtALaterRestore) {
    storeFile(sibling_, "half a fi");
    const test::LogCapture quiet;
    {
        PlacingRecord record("j1");
        ASSERT_TRUE(record.announce(run, 17, sibling_));
        const FileHandle held(CreateFileW(sibling_.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                          OPEN_EXISTING, 0, nullptr));
        record.finish();
        EXPECT_TRUE(exists(sibling_));
        EXPECT_FALSE(exists(record_)) << "the next run's place";
    }
    PlacingRecord busy("j2");
    const std::wstring other = siblingPath(target_, {9}, 1);
    storeFile(other, "being written");
    ASSERT_TRUE(busy.announce({9}, 1, other));
    PlacingRecord::sweep();
    EXPECT_FALSE(exists(sibling_));
    EXPECT_TRUE(exists(other)) << "of a run under way";
    busy.finish();
    EXPECT_FALSE(exists(other));
    WIN32_FIND_DATAW entry{};
    const FindHandle search(FindFirstFileW(dataPath(L"\\restoring\\*j*").c_str(), &entry));
    EXPECT_FALSE(search) << "no record is left";
    // The drive is away: who knows what lies there.
    PlacingRecord away("j3");
    ASSERT_TRUE(away.announce(run, 1, L"Q:\\a\\~ab0102030405-1.tmp"));
    EXPECT_FALSE(away.removeSibling());
    EXPECT_FALSE(away.removeSibling()) << "nor is it forgotten";
}

}  // namespace
}  // namespace dorvo
