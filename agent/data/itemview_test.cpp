#include "data/itemview.h"

#include <gtest/gtest.h>

#include "data/runrecord.h"
#include "text/format.h"

namespace dorvo::agent {
namespace {

TEST(ItemView, ShowsFilesAndFoldersInColumnsAndAsJson) {
    // 2011-03-04 05:06:07
    constexpr uint64_t ticks = 129'436'887'670'000'000;
    const FILETIME time{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
    RestoreCatalog::Item item{
        L"C:\\\u00E4.txt", {FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_HIDDEN, {}, {}, time, 1, 1536}};
    EXPECT_EQ(itemText(item), "2011-03-04 05:06:07     4.0 GiB  -a-h-  C:\\\xC3\xA4.txt");
    EXPECT_EQ(json_spirit::write(json_spirit::Ordered_value(itemJson(item))),
              "{\"path\":\"C:\\\\\xC3\xA4.txt\",\"type\":\"file\",\"size\":4294968832,"
              R"("attributes":34,"created":"","accessed":"","modified":"2011-03-04 05:06:07"})");
    item.path = L"C:";
    item.data = {};
    item.data.dwFileAttributes = FILE_ATTRIBUTE_DIRECTORY;
    EXPECT_EQ(itemText(item), std::string(33, ' ') + "d----  C:");
    EXPECT_EQ(itemHeadings().find("PATH"), itemText(item).find("C:"));
}

TEST(Listings, ShowNoControlCharacters) {
    const std::string crafted = "C:\\a\x1B[2J\nb";
    const std::string shown = "C:\\a?[2J?b";
    RestoreCatalog::Item item{L"C:\\a\x1B[2J\nb", {}};
    EXPECT_TRUE(itemText(item).ends_with("  " + shown));
    EXPECT_NE(json_spirit::write(json_spirit::Ordered_value(itemJson(item))).find("\\n"),
              std::string::npos);
    EXPECT_EQ(tableText({"PATH"}, {{crafted}}), "PATH\n" + shown + "\n");
    Progress progress{};
    progress.file = crafted;
    EXPECT_TRUE(progressLine(progress, 160).ends_with("  " + shown));
}

}  // namespace
}  // namespace dorvo::agent
