#include "source/sourcewalk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/fake_files.h"
#include "support/log_capture.h"

namespace dorvo {
namespace {

using test::FakeFiles;
using test::NameFilter;
using test::Recorder;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr DWORD link = FILE_ATTRIBUTE_REPARSE_POINT;
constexpr DWORD folderLink = FILE_ATTRIBUTE_REPARSE_POINT | FILE_ATTRIBUTE_DIRECTORY;

class Walk : public testing::Test {
protected:
    void SetUp() override {
        rules_.files = &files_;
        files_.addFolder(L"C:\\", L"d");
        files_.addFile(L"C:\\d", L"b.txt", 3);
        files_.addFolder(L"C:\\d", L"e");
        files_.addFile(L"C:\\d\\e", L"c.tmp", 5);
        files_.addFile(L"C:\\d", L"a.tmp", uint64_t{1} << 32);
    }
    void TearDown() override { EXPECT_EQ(files_.open(), 0) << "searches left open"; }

    std::vector<std::wstring> walk(const std::vector<std::wstring>& sources) {
        recorder_ = Recorder();
        SourceWalk(recorder_, rules_).walk(sources);
        return recorder_.paths;
    }

    FakeFiles files_;
    SourceWalk::Rules rules_;
    Recorder recorder_;
};

TEST_F(Walk, AFilterRemovesFilesButNoDirectories) {
    NameFilter nothing({});
    rules_.filter = &nothing;
    EXPECT_THAT(walk({L"C:\\d", L"C:\\d\\b.txt"}), ElementsAre(L"C:\\d", L"C:\\d\\e"));
    // Sources are asked for by their path, everything below by its name.
    EXPECT_THAT(nothing.asked,
                ElementsAre(L"C:\\d", L"b.txt", L"e", L"c.tmp", L"a.tmp", L"C:\\d\\b.txt"));

    NameFilter names({L"b.txt"});
    rules_.filter = &names;
    EXPECT_THAT(walk({L"C:\\d\\b.txt"}), IsEmpty());
    EXPECT_THAT(walk({L"C:\\d"}), ElementsAre(L"C:\\d", L"C:\\d\\b.txt", L"C:\\d\\e"));
}

// What is left out anyway, and folders, say nothing of the filter.
TEST_F(Walk, KnowsWhetherTheFilterHasKeptAFileOut) {
    files_.addFolder(L"C:\\", L"empty");
    files_.add(L"C:\\empty", {L"junction", folderLink, 0});
    struct Row {
        const wchar_t* source;
        std::vector<std::wstring> names;
        const wchar_t* excluded;
        bool filteredOut;
    };
    const Row rows[] = {
        {L"C:\\d", {}, L"", true},
        {L"C:\\d", {L"b.txt", L"c.tmp"}, L"", true},
        {L"C:\\d", {L"b.txt", L"c.tmp"}, L"C:\\d\\a.tmp", false},
        {L"C:\\d", {L"a.tmp", L"b.txt", L"c.tmp"}, L"", false},
        {L"C:\\d\\b.txt", {}, L"", true},
        {L"C:\\empty", {}, L"", false},
    };
    for (const Row& row : rows) {
        NameFilter names(row.names);
        rules_.filter = &names;
        rules_.excluded = [&](const std::wstring& path) { return path == row.excluded; };
        Recorder recorder;
        SourceWalk walk(recorder, rules_);
        walk.walk({row.source});
        EXPECT_EQ(walk.filteredOut(), row.filteredOut) << &row - rows;
    }
}

TEST_F(Walk, ReportsLinksWithoutEnteringThem) {
    files_.add(L"C:\\d\\e", {L"junction", folderLink, 0});
    files_.addFile(L"C:\\d\\e\\junction", L"hidden.txt");
    files_.add(L"C:\\d\\e", {L"symlink", link, 0});
    EXPECT_THAT(walk({L"C:\\d\\e"}), ElementsAre(L"C:\\d\\e", L"C:\\d\\e\\c.tmp",
                                                 L"C:\\d\\e\\junction", L"C:\\d\\e\\symlink"));
    EXPECT_THAT(walk({L"C:\\d\\e\\junction"}), ElementsAre(L"C:\\d\\e\\junction"));

    // A filter removes links below the top level, folders or not.
    NameFilter nothing({});
    rules_.filter = &nothing;
    EXPECT_THAT(walk({L"C:\\d\\e"}), ElementsAre(L"C:\\d\\e"));
    EXPECT_THAT(walk({L"C:\\d\\e\\junction"}), ElementsAre(L"C:\\d\\e\\junction"));
}

TEST_F(Walk, TellsOfFoldersThatAreLinksWhateverTheFilterSays) {
    files_.add(L"C:\\d", {L"junction", folderLink, 0, IO_REPARSE_TAG_MOUNT_POINT});
    files_.add(L"C:\\d", {L"symlink", link, 0, IO_REPARSE_TAG_SYMLINK});  // is read as a file
    files_.add(L"C:\\d", {L"private", folderLink, 0});
    std::vector<std::wstring> told;
    rules_.notEntered = [&](const std::wstring& path, DWORD tag) {
        told.push_back(path);
        EXPECT_EQ(tag, IO_REPARSE_TAG_MOUNT_POINT);
    };
    rules_.excluded = [](const std::wstring& path) { return path.ends_with(L"private"); };
    NameFilter nothing({});
    for (FilterPolicy* const filter :
         {static_cast<FilterPolicy*>(nullptr), static_cast<FilterPolicy*>(&nothing)}) {
        rules_.filter = filter;
        told.clear();
        walk({L"C:\\d"});
        EXPECT_THAT(told, ElementsAre(L"C:\\d\\junction"));
    }
}

TEST_F(Walk, FollowsASourceThatIsALinkWhereAsked) {
    files_.add(L"C:\\d", {L"junction", folderLink, 0});
    files_.addFile(L"C:\\d\\junction", L"behind.txt");
    files_.add(L"C:\\d", {L"dangling", folderLink, 0});
    files_.dangling = L"C:\\d\\dangling";
    rules_.followSources = true;
    std::vector<std::wstring> failed;
    rules_.failed = [&](const std::wstring& path, DWORD error) {
        failed.push_back(path);
        EXPECT_EQ(error, DWORD{ERROR_PATH_NOT_FOUND});
    };
    EXPECT_THAT(walk({L"C:\\d\\junction", L"C:\\d\\dangling"}),
                ElementsAre(L"C:\\d\\junction", L"C:\\d\\junction\\behind.txt"));
    EXPECT_EQ(recorder_.attributes.front(), DWORD{FILE_ATTRIBUTE_DIRECTORY});
    EXPECT_THAT(failed, ElementsAre(L"C:\\d\\dangling"));
}

TEST_F(Walk, LogsWhatCannotBeListedAndGoesOn) {
    test::LogCapture log;
    std::vector<DWORD> failed;
    rules_.failed = [&](const std::wstring&, DWORD error) { failed.push_back(error); };
    files_.unlistable = L"C:\\d\\e";
    for (const DWORD error :
         {DWORD{ERROR_ACCESS_DENIED}, DWORD{ERROR_FILE_NOT_FOUND}, DWORD{ERROR_NOT_READY}}) {
        files_.unlistableError = error;
        EXPECT_THAT(walk({L"C:\\d"}),
                    ElementsAre(L"C:\\d", L"C:\\d\\b.txt", L"C:\\d\\e", L"C:\\d\\a.tmp"));
    }
    files_.unlistable.clear();
    files_.breaking = L"C:\\d";
    files_.breaksAt = 2;
    EXPECT_THAT(
        walk({L"C:\\d", L"C:\\d\\a.tmp"}),
        ElementsAre(L"C:\\d", L"C:\\d\\b.txt", L"C:\\d\\e", L"C:\\d\\e\\c.tmp", L"C:\\d\\a.tmp"));
    EXPECT_EQ(log.lines().size(), 4u) << "the end of a listing is no failure";
    EXPECT_TRUE(log.begins("Failed to iterate 'C:\\d\\e\\*', err=5, "));
    EXPECT_TRUE(log.begins("Failed to iterate 'C:\\d\\*', err=23, "));
    EXPECT_THAT(failed, ElementsAre(ERROR_ACCESS_DENIED, ERROR_NOT_READY, ERROR_CRC))
        << "a drive without entries is empty";
}

TEST_F(Walk, LeavesOutWholeSubtreesAndStopsAtOnce) {
    rules_.excluded = [](const std::wstring& path) { return path == L"C:\\d\\e"; };
    EXPECT_THAT(walk({L"C:\\d"}), ElementsAre(L"C:\\d", L"C:\\d\\b.txt", L"C:\\d\\a.tmp"));
    EXPECT_THAT(walk({L"C:\\d\\e"}), IsEmpty());
    EXPECT_EQ(files_.opened, 1) << "what is left out is not listed";

    rules_.excluded = nullptr;
    rules_.stopped = [this] { return recorder_.paths.size() == 4; };
    EXPECT_EQ(walk({L"C:\\d", L"C:\\d\\b.txt"}).size(), 4u);
}

// A call a level would need more stack than a program has.
TEST_F(Walk, TakesDeepTrees) {
    constexpr size_t depth = 4000;
    std::wstring path = L"C:\\d\\e";
    for (size_t level = 0; level < depth; ++level) {
        files_.addFolder(path, L"x");
        path += L"\\x";
    }
    EXPECT_EQ(walk({L"C:\\d\\e"}).size(), depth + 2);
    EXPECT_EQ(recorder_.paths.back(), path);
}

}  // namespace
}  // namespace dorvo
