#include "job/restorelist.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "base/error_codes.h"
#include "record/sourcerecord.h"
#include "support/fails_with.h"
#include "support/list_records.h"
#include "support/log_capture.h"
#include "support/temporary_folder.h"

namespace dorvo {
namespace {

using testing::ElementsAre;
using testing::Pair;

using Item = RestoreCatalog::Item;

Item file(const std::wstring& path, DWORD size = 0) {
    return {path, {FILE_ATTRIBUTE_ARCHIVE, {}, {}, {5, 6}, 0, size}};
}
Item folder(const std::wstring& path) {
    return {path, {FILE_ATTRIBUTE_DIRECTORY, {}, {}, {}, 0, 0}};
}

// Answers with the pages that a test has laid out, by source and `after`.
class FakeCatalog : public RestoreCatalog {
public:
    bool list(const std::wstring& path, const std::string& after, Page& page) override {
        asked.push_back(path);
        if (asked.size() == failsAt) {
            SetLastError(ERROR_NETNAME_DELETED);
            return false;
        }
        page = pages[{path, after}];
        return true;
    }

    std::map<std::pair<std::wstring, std::string>, Page> pages;
    std::vector<std::wstring> asked;
    size_t failsAt = 0;
};

class RestoreList : public testing::Test {
protected:
    bool generate(const std::vector<std::wstring>& sources) {
        return generator_.generate(list_, sources);
    }
    std::vector<std::wstring> records() const { return test::listRecords(list_); }

    FakeCatalog catalog_;
    std::vector<std::pair<std::wstring, DWORD>> failed_;
    RestoreListGenerator generator_{
        {.catalog = &catalog_, .failedItem = [this](const std::wstring& path, DWORD error) {
             failed_.emplace_back(path, error);
         }}};
    test::TemporaryFolder ground_{L"dorvo_restorelist"};
    const std::wstring list_ = ground_.path() + L"\\src";
};

TEST_F(RestoreList, AsksForEverySourceOnceAndReportsWhatIsNotHeld) {
    catalog_.pages[{L"C:\\a", ""}] = {{folder(L"C:\\a"), file(L"C:\\a\\x")}, ""};
    catalog_.pages[{L"C:\\ab", ""}] = {{file(L"C:\\ab")}, ""};
    catalog_.pages[{L"D:", ""}] = {{folder(L"D:"), file(L"D:\\y")}, ""};
    ASSERT_TRUE(generate(
        {L"C:\\a\\x", L"C:\\ab", L"C:\\a\\", L"D:\\", L"D:\\deep\\down", L"C:\\no", L"C:\\a"}));
    EXPECT_THAT(catalog_.asked, ElementsAre(L"C:\\ab", L"C:\\a", L"D:", L"C:\\no"));
    EXPECT_THAT(records(), ElementsAre(L"SS", L"FI 1 C:\\ab", L"DI 2 C:\\a", L"FI 3 C:\\a\\x",
                                       L"DI 4 D:", L"FI 5 D:\\y", L"ES"));
    EXPECT_THAT(failed_, ElementsAre(Pair(L"C:\\no", DWORD{ERROR_FILE_NOT_FOUND})));
}

TEST_F(RestoreList, ReportsWhatTheStorageHasLostOfItsList) {
    // Each last page tells of the whole list.
    catalog_.pages[{L"C:\\a", ""}] = {{file(L"C:\\a")}, "", 2};
    catalog_.pages[{L"C:\\no", ""}] = {{}, "", 2};
    catalog_.pages[{L"D:", ""}] = {{folder(L"D:")}, "1"};
    catalog_.pages[{L"D:", "1"}] = {{file(L"D:\\x")}, "", 2};
    ASSERT_TRUE(generate({L"C:\\a", L"C:\\no", L"D:"}));
    EXPECT_THAT(records(), ElementsAre(L"SS", L"FI 1 C:\\a", L"DI 2 D:", L"FI 3 D:\\x", L"ES"));
    EXPECT_THAT(failed_, ElementsAre(Pair(L"C:\\no", DWORD{ERROR_FILE_NOT_FOUND}),
                                     Pair(L"\\", errorLostBytes)));
}

TEST_F(RestoreList, ReportsAnItemThatNoRecordHolds) {
    const std::wstring tooLong = L"C:\\" + std::wstring(longestEntryName, L'n');
    catalog_.pages[{L"", ""}] = {{file(tooLong, 9), file(L"C:\\x")}, ""};
    ASSERT_TRUE(generate({}));
    EXPECT_THAT(records(), ElementsAre(L"SS", L"FI 1 C:\\x", L"ES"));
    EXPECT_THAT(failed_, ElementsAre(Pair(tooLong, DWORD{ERROR_FILENAME_EXCED_RANGE})));
    EXPECT_EQ(generator_.totals().fileSize(), 0u);
}

TEST_F(RestoreList, TrustsNoCatalogThatAnswersWrong) {
    test::LogCapture log;
    const auto page = [&](const char* after, const char* next) {
        catalog_.pages[{L"C:\\a", after}] = {{file(L"C:\\a\\x")}, next};
    };
    page("", "1");
    page("1", "1");
    EXPECT_FAILS(ERROR_INVALID_DATA, generate({L"C:\\a"}));

    page("1", "2");
    page("2", "3");
    page("3", "2");
    EXPECT_FAILS(ERROR_INVALID_DATA, generate({L"C:\\a"}));

    catalog_.pages[{L"C:\\a", ""}] = {{file(L"C:\\ab")}, ""};
    EXPECT_FAILS(ERROR_INVALID_DATA, generate({L"C:\\a"}));
    EXPECT_THAT(records(), ElementsAre(L"no list"));
}

TEST_F(RestoreList, LeavesNothingOfAListThatWasBrokenOff) {
    catalog_.pages[{L"", ""}] = {{file(L"C:\\x")}, "1"};
    catalog_.failsAt = 2;
    EXPECT_FAILS(ERROR_NETNAME_DELETED, generate({}));

    // Says stop when the first page has come.
    class AfterAPage : public interrupter {
    public:
        explicit AfterAPage(const FakeCatalog& catalog) : catalog_(catalog) {}
        bool interrupted() const override { return !catalog_.asked.empty(); }

    private:
        const FakeCatalog& catalog_;
    };
    catalog_.asked.clear();
    const AfterAPage stop(catalog_);
    EXPECT_FAILS(ERROR_CANCELLED,
                 RestoreListGenerator({.catalog = &catalog_, .stop = &stop}).generate(list_, {}));
    EXPECT_EQ(catalog_.asked.size(), 1u);

    EXPECT_THAT(records(), ElementsAre(L"no list"));
    EXPECT_EQ(GetFileAttributesW((list_ + L".part").c_str()), INVALID_FILE_ATTRIBUTES);
}

}  // namespace
}  // namespace dorvo
