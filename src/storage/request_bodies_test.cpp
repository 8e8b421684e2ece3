#include "storage/request_bodies.h"

#include <gtest/gtest.h>

namespace dorvo {
namespace {

using json_spirit::write;

TEST(RequestBodies, StartJob) {
    EXPECT_EQ(write(startJobBody("def", "inst", {2, 3, 5'000'000'000}, "2026-01-02 03:04:05")),
              R"({"jobdefinitionid":"def","jobinstanceid":"inst",)"
              R"("starttime":"2026-01-02 03:04:05","totaldirectories":2,"totalfiles":3,)"
              R"("totalsize":5000000000})");
    const auto timeless = startJobBody("def", "inst", {}, "");
    EXPECT_EQ(timeless.get_obj().at("starttime").get_str(), "unknown");
}

TEST(RequestBodies, FileInformationKeepsUnsignedHalves) {
    const ItemAttributes file{0x20, 0xfedcba98, 0xffffffff, 1, 2, 3, 4, 0xffffffff, 6};
    EXPECT_EQ(write(uploadFileBody("inst", "C:\\a\"b", file, 0x1'8000'0000)),
              R"({"attri":{"dwFileAttributes":32,"ftCreationTimedwHighDateTime":1,)"
              R"("ftCreationTimedwLowDateTime":2,"ftLastAccessTimedwHighDateTime":3,)"
              R"("ftLastAccessTimedwLowDateTime":4,"ftLastWriteTimedwHighDateTime":4294967295,)"
              R"("ftLastWriteTimedwLowDateTime":6,"nFileSizeHigh":4275878552,)"
              R"("nFileSizeLow":4294967295},"jobinstanceid":"inst","sourcename":"C:\\a\"b",)"
              R"("totalblock":49153,"totalsizeHigh":1,"totalsizeLow":2147483648,"type":"file"})");
}

TEST(RequestBodies, TotalBlocks) {
    EXPECT_EQ(totalBlocks(0, false), 1u);
    EXPECT_EQ(totalBlocks(131071, false), 1u);
    EXPECT_EQ(totalBlocks(131072, false), 2u);
    EXPECT_EQ(totalBlocks(131073, false), 2u);
    EXPECT_EQ(totalBlocks(0, true), 0u);
    EXPECT_EQ(totalBlocks(131072, true), 1u);
    const auto folder = uploadFileBody("i", "C:\\d", {.attributes = 0x30}, 0);
    EXPECT_EQ(folder.get_obj().at("type").get_str(), "folder");
}

TEST(RequestBodies, SmallOnes) {
    const FailedItem errors[] = {{"C:\\x", 5, ""}, {"C:\\y", 0x20010193, "Forbidden"}};
    EXPECT_EQ(write(submitErrorsBody("inst", errors)),
              R"({"errors":[{"code":5,"path":"C:\\x","reason":""},)"
              R"({"code":536936851,"path":"C:\\y","reason":"Forbidden"}],"jobinstanceid":"inst"})");
    EXPECT_EQ(write(endJobBody("inst", "")), R"({"endtime":"unknown","jobinstanceid":"inst"})");
    EXPECT_EQ(write(stopJobBody("inst")), R"({"id":"inst"})");
    const IncrementItem items[] = {{"C:\\x", 0x01d0'0000'ffff'ffff}};
    EXPECT_EQ(write(incrementCheckBody("def", "inst", true, false, items)),
              R"({"compress":true,"first":false,"id":"def","jobinstanceid":"inst",)"
              R"("source":[{"mtimeHigh":30408704,"mtimeLow":4294967295,"path":"C:\\x"}]})");
}

TEST(RequestBodies, IncrementAnswers) {
    const auto paths = [](const std::string& text) {
        json_spirit::Value answer;
        json_spirit::read_or_throw(text, answer);
        std::vector<std::string> named;
        return readIncrementAnswer(answer, named) ? static_cast<int>(named.size()) : -1;
    };
    EXPECT_EQ(paths(R"({"source":[]})"), 0);
    EXPECT_EQ(paths(R"({"source":[{"path":"a","more":1},{"path":"b"}]})"), 2);
    for (const char* bad :
         {"{}", "[]", R"({"source":{}})", R"({"source":["a"]})", R"({"source":[{"path":1}]})"}) {
        EXPECT_EQ(paths(bad), -1) << bad;
    }
}

TEST(RequestBodies, PathsLoseOneTrailingBackslash) {
    EXPECT_EQ(withoutTrailingBackslash("C:\\"), "C:");
    EXPECT_EQ(withoutTrailingBackslash("C:\\dir"), "C:\\dir");
    EXPECT_EQ(withoutTrailingBackslash(""), "");
}

}  // namespace
}  // namespace dorvo
