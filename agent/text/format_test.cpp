#include "text/format.h"

#include <gtest/gtest.h>

namespace dorvo::agent {
namespace {

TEST(Units, BytesHaveOneDecimalAndNeverReach1024) {
    struct Row {
        uint64_t bytes;
        const char* text;
    };
    for (const Row& row : {Row{0, "0 B"}, Row{1023, "1023 B"}, Row{1024, "1.0 KiB"},
                           Row{1536, "1.5 KiB"}, Row{1048575, "1.0 MiB"},
                           Row{uint64_t{3} << 30, "3.0 GiB"}, Row{UINT64_MAX, "16.0 EiB"}}) {
        EXPECT_EQ(bytesText(row.bytes), row.text);
    }
}

TEST(Units, DurationsCarryIntoHours) {
    for (const auto& [seconds, text] : {std::pair{0, "0:00"},
                                        {59, "0:59"},
                                        {60, "1:00"},
                                        {3599, "59:59"},
                                        {3600, "1:00:00"},
                                        {90061, "25:01:01"}}) {
        EXPECT_EQ(durationText(static_cast<uint64_t>(seconds)), text);
    }
}

TEST(Units, ShorteningKeepsBothEndsAndWholeCharacters) {
    const std::string path = "C:\\\xC3\xA4\xC3\xB6\xC3\xBC\\\xE2\x82\xAC\xE2\x82\xAC\\end.txt";
    const size_t whole = columnsOf(path);
    EXPECT_EQ(whole, 17U);
    for (size_t columns = 0; columns <= whole + 1; ++columns) {
        const std::string text = shortened(path, columns);
        EXPECT_EQ(columnsOf(text), std::min(columns, whole)) << columns;
        if (columns >= 5) {
            EXPECT_EQ(text.back(), 't') << columns;
        }
        // No character is cut: a cut one would begin or end with a lone continuation.
        EXPECT_EQ(text.find("...\x82"), std::string::npos) << columns;
    }
    EXPECT_EQ(shortened("abcdefghij", 8), "a...ghij");
}

TEST(Printable, KeepsTextAndMasksTheRest) {
    struct Row {
        std::string_view text, shown;
    };
    for (const Row& row : {Row{"", ""},
                           {"C:\\\xC3\xA4 ~\xE2\x82\xAC\xF0\x9F\x98\x80",
                            "C:\\\xC3\xA4 ~\xE2\x82\xAC\xF0\x9F\x98\x80"},
                           {"a\x1B[2Jb\r\n\tc\x7F", "a?[2Jb???c?"},
                           {{"a\0b", 3}, "a?b"},
                           {"\xC2\x80\xC2\x9B\xC2\xA0", "??\xC2\xA0"},
                           {"a\xFFz", "a\xEF\xBF\xBDz"}}) {
        EXPECT_EQ(printable(row.text), row.shown);
    }
}

TEST(Table, AlignsByCharactersAndNeverAfterTheLastColumn) {
    EXPECT_EQ(tableText({"A", "B"}, {{"\xC3\xA4\xC3\xB6\xC3\xBC", "1"}, {"x", "22"}}),
              "A    B\n\xC3\xA4\xC3\xB6\xC3\xBC  1\nx    22\n");
}

}  // namespace
}  // namespace dorvo::agent
