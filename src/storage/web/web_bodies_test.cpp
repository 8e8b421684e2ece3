#include "storage/web/web_bodies.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace dorvo {
namespace {

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;
using json_spirit::write;

constexpr const char* instancesText =
    R"({"instances": [{"machine": "PC", "jobdefinitionid": "d", "jobinstanceid": "i",)"
    R"( "starttime": "2026-01-02 03:04:05", "endtime": "", "state": "running", "totalfiles": 3,)"
    R"( "totaldirectories": 2, "totalsize": 5000000000, "errors": 1}]})";
constexpr const char* ticketText =
    R"({"jobinstanceid":"r","totalfiles":3,"totaldirectories":2,"totalsize":5000000000})";
constexpr const char* attributesText =
    R"({"dwFileAttributes":33,"nFileSizeHigh":1,"nFileSizeLow":4294967295,)"
    R"("ftCreationTimedwHighDateTime":2,"ftCreationTimedwLowDateTime":3,)"
    R"("ftLastAccessTimedwHighDateTime":4,"ftLastAccessTimedwLowDateTime":5,)"
    R"("ftLastWriteTimedwHighDateTime":6,"ftLastWriteTimedwLowDateTime":7})";

Value parsed(const std::string& text) {
    Value value;
    json_spirit::read_or_throw(text, value);
    return value;
}

Value itemAnswer() {
    return parsed(std::string(R"({"attri":)") + attributesText +
                  R"(,"type":"file","totalsizeHigh":1,"totalsizeLow":4294967295,)"
                  R"("totalblock":4,"compress":true})");
}

Value pageAnswer() {
    return parsed(std::string(R"({"source":[{"path":"C:\\a","type":"file","attri":)") +
                  attributesText + R"(}],"next":"C:\\a"})");
}

// The object without one of its members, and with one that no reader may take for what it was.
std::vector<Value> spoilt(const Value& whole) {
    std::vector<Value> bad = {Value(), Value(1), Value(Object{})};
    for (const auto& [name, value] : whole.get_obj()) {
        Object changed = whole.get_obj();
        for (const Value& other : {Value(), Value(-1), Value(1.5)}) {
            changed[name] = other;
            bad.emplace_back(changed);
        }
        if (value.type() == json_spirit::obj_type) {
            for (const Value& inner : spoilt(value)) {
                changed[name] = inner;
                bad.emplace_back(changed);
            }
        }
        changed.erase(name);
        bad.emplace_back(changed);
    }
    return bad;
}

TEST(WebBodies, StartJob) {
    EXPECT_EQ(write(startJobBody("def", "inst", {2, 3, 5'000'000'000}, "2026-01-02 03:04:05")),
              R"({"jobdefinitionid":"def","jobinstanceid":"inst",)"
              R"("starttime":"2026-01-02 03:04:05","totaldirectories":2,"totalfiles":3,)"
              R"("totalsize":5000000000})");
    const auto timeless = startJobBody("def", "inst", {}, "");
    EXPECT_EQ(timeless.get_obj().at("starttime").get_str(), "unknown");
}

TEST(WebBodies, FileInformationKeepsUnsignedHalves) {
    const ItemAttributes file{0x20, 0xfedcba98, 0xffffffff, 1, 2, 3, 4, 0xffffffff, 6};
    EXPECT_EQ(write(uploadFileBody("inst", "C:\\a\"b", file, 0x1'8000'0000)),
              R"({"attri":{"dwFileAttributes":32,"ftCreationTimedwHighDateTime":1,)"
              R"("ftCreationTimedwLowDateTime":2,"ftLastAccessTimedwHighDateTime":3,)"
              R"("ftLastAccessTimedwLowDateTime":4,"ftLastWriteTimedwHighDateTime":4294967295,)"
              R"("ftLastWriteTimedwLowDateTime":6,"nFileSizeHigh":4275878552,)"
              R"("nFileSizeLow":4294967295},"jobinstanceid":"inst","sourcename":"C:\\a\"b",)"
              R"("totalblock":49153,"totalsizeHigh":1,"totalsizeLow":2147483648,"type":"file"})");
}

TEST(WebBodies, TotalBlocks) {
    EXPECT_EQ(totalBlocks(0, false), 1u);
    EXPECT_EQ(totalBlocks(131071, false), 1u);
    EXPECT_EQ(totalBlocks(131072, false), 2u);
    EXPECT_EQ(totalBlocks(131073, false), 2u);
    EXPECT_EQ(totalBlocks(0, true), 0u);
    EXPECT_EQ(totalBlocks(131072, true), 1u);
    const auto folder = uploadFileBody("i", "C:\\d", {.attributes = 0x30}, 0);
    EXPECT_EQ(folder.get_obj().at("type").get_str(), "folder");
}

TEST(WebBodies, SmallOnes) {
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

TEST(WebBodies, OfALongRefusalTheBeginningCounts) {
    const std::string most(499, 'x');
    EXPECT_EQ(readRefusal(R"({"error":")" + most + "\n\"}"), "");
    EXPECT_EQ(readRefusal(R"({"error":")" + most + "yz\"}"), most + "y");
    EXPECT_EQ(readRefusal(R"({"error":")" + most + "\xC3\xA4\"}"), most) << "within a character";
}

TEST(WebBodies, IncrementAnswers) {
    const auto paths = [](const std::string& text) {
        std::vector<std::string> named;
        return readIncrementAnswer(parsed(text), named) ? static_cast<int>(named.size()) : -1;
    };
    EXPECT_EQ(paths(R"({"source":[]})"), 0);
    EXPECT_EQ(paths(R"({"source":[{"path":"a","more":1},{"path":"b"}]})"), 2);
    for (const char* bad :
         {"{}", "[]", R"({"source":{}})", R"({"source":["a"]})", R"({"source":[{"path":1}]})"}) {
        EXPECT_EQ(paths(bad), -1) << bad;
    }
}

TEST(WebBodies, ABlockByteForByte) {
    const BlockForm form{"11111111-2222-3333-4444-555555555555", "d41d8cd98f00b204e9800998ecf8427e",
                         "inst", "C:\\dir\\file", 3};
    EXPECT_EQ(blockFormPrefix(form),
              "--11111111-2222-3333-4444-555555555555\r\n"
              "Content-Disposition: form-data; name=\"md5\"\r\n"
              "\r\n"
              "d41d8cd98f00b204e9800998ecf8427e\r\n"
              "--11111111-2222-3333-4444-555555555555\r\n"
              "Content-Disposition: form-data; name=\"jobinstanceid\"\r\n"
              "\r\n"
              "inst\r\n"
              "--11111111-2222-3333-4444-555555555555\r\n"
              "Content-Disposition: form-data; name=\"sourcename\"\r\n"
              "\r\n"
              "C:\\dir\\file\r\n"
              "--11111111-2222-3333-4444-555555555555\r\n"
              "Content-Disposition: form-data; name=\"file\"; "
              "filename=\"3.jpg\"\r\n"
              "Content-Type: image/pjpeg\r\n"
              "Content-Transfer-Encoding: binary\r\n"
              "\r\n");
    EXPECT_EQ(blockFormSuffix(form),
              "\r\n"
              "--11111111-2222-3333-4444-555555555555\r\n"
              "Content-Disposition: form-data; name=\"submit\"\r\n"
              "\r\n"
              "Submit\r\n"
              "--11111111-2222-3333-4444-555555555555--\r\n");
    EXPECT_EQ(blockFormContentType(form),
              "multipart/form-data; boundary=11111111-2222-3333-4444-555555555555");
}

TEST(WebBodies, ReadsTheListOfRuns) {
    std::vector<StoredInstance> instances;
    std::string next = "old";
    ASSERT_TRUE(readInstances(parsed(instancesText), instances, next));
    EXPECT_EQ(next, "");
    ASSERT_EQ(instances.size(), 1u);
    EXPECT_EQ(instances[0].jobDefinitionId + instances[0].jobInstanceId, "di");
    EXPECT_EQ(instances[0].startTime, "2026-01-02 03:04:05");
    EXPECT_EQ(instances[0].totalSize, 5'000'000'000u);
    EXPECT_EQ(instances[0].errors, 1u);
    ASSERT_TRUE(readInstances(parsed(R"({"instances": [], "next": "n"})"), instances, next));
    EXPECT_TRUE(instances.empty());
    EXPECT_EQ(next, "n");
}

TEST(WebBodies, RefusesAListOfAnotherShapeAndKeepsWhatItHad) {
    std::vector<Value> bad = spoilt(parsed(instancesText));
    for (const Value& run :
         spoilt(parsed(instancesText).get_obj().at("instances").get_array()[0])) {
        bad.emplace_back(Object{{"instances", Array{run}}});
    }
    bad.push_back(parsed(R"({"instances": [], "next": 1})"));
    for (const Value& answer : bad) {
        std::vector<StoredInstance> instances(1);
        std::string next = "old";
        EXPECT_FALSE(readInstances(answer, instances, next)) << write(answer);
        EXPECT_EQ(next + std::to_string(instances.size()), "old1");
    }
}

TEST(WebBodies, TakesNothingButAnMd5OrNoneForAKeys) {
    const std::string md5(32, 'a');
    for (const std::string& good : {std::string(), md5}) {
        std::string read = "old";
        EXPECT_TRUE(readKeyMd5(Object{{"md5", good}}, read));
        EXPECT_EQ(read, good);
    }
    std::vector<Value> bad = spoilt(Object{{"md5", md5}});
    for (const std::string& text : {md5 + "a", std::string(32, 'A'), std::string("a")}) {
        bad.emplace_back(Object{{"md5", text}});
    }
    for (const Value& answer : bad) {
        std::string read = "old";
        EXPECT_FALSE(readKeyMd5(answer, read)) << write(answer);
        EXPECT_EQ(read, "old");
    }
}

TEST(WebBodies, APathIsSplitAtItsLastBackslash) {
    const std::tuple<const char*, const char*, const char*> rows[] = {
        {"C:\\data\\a.txt", "C:\\data", "a.txt"},
        {"C:\\a.txt", "C:", "a.txt"},
        {"C:\\data\\", "C:", "data"},
        {"C:\\", "", "C:"},
        {"\\\\pc\\share\\a", "\\\\pc\\share", "a"},
        {"", "", ""},
    };
    for (const auto& [path, folder, name] : rows) {
        SCOPED_TRACE(path);
        const StoredPath split = storedPath("PC", "inst", path);
        EXPECT_EQ(split.folder, folder);
        EXPECT_EQ(split.name, name);
    }
}

TEST(WebBodies, ReadsWholeAnswers) {
    RestoreTicket ticket;
    ASSERT_TRUE(readRestoreTicket(parsed(ticketText), ticket));
    EXPECT_EQ(ticket.jobInstanceId, "r");
    EXPECT_EQ(ticket.size, 5'000'000'000u);
    StoredItem item;
    ASSERT_TRUE(readStoredItem(itemAnswer(), item));
    EXPECT_EQ(item.packageSize, 0x1'ffff'ffff);
    EXPECT_TRUE(item.compressed);
    EXPECT_EQ(item.attributes.attributes, 33u);
    EXPECT_EQ(item.attributes.sizeLow, 0xffffffff);
    EXPECT_EQ(item.attributes.creationHigh, 2u);
    EXPECT_EQ(item.attributes.lastWriteLow, 7u);
    StoredPage page;
    ASSERT_TRUE(readStoredPage(pageAnswer(), "", 1, page));
    ASSERT_EQ(page.items.size(), 1u);
    EXPECT_EQ(page.items[0].path, "C:\\a");
    EXPECT_EQ(page.next, "C:\\a");
    EXPECT_EQ(page.missing, 0u);
    Value last = pageAnswer();
    last.get_obj()["missing"] = 7;
    ASSERT_TRUE(readStoredPage(last, "", 1, page));
    EXPECT_EQ(page.missing, 7u);
}

TEST(WebBodies, RefusesAnswersOfAnotherShape) {
    RestoreTicket ticket{"kept"};
    for (const Value& answer : spoilt(parsed(ticketText))) {
        EXPECT_FALSE(readRestoreTicket(answer, ticket)) << write(answer);
    }
    EXPECT_EQ(ticket.jobInstanceId, "kept");

    std::vector<Value> items = spoilt(itemAnswer());
    for (const char* name : {"totalsizeHigh", "totalsizeLow", "totalblock"}) {
        items.push_back(itemAnswer());
        items.back().get_obj()[name] = uint64_t{1} << 32;
    }
    items.push_back(itemAnswer());
    items.back().get_obj()["type"] = "folder";  // its attributes are a file's
    items.push_back(itemAnswer());
    items.back().get_obj()["attri"].get_obj()["nFileSizeLow"] = uint64_t{1} << 32;
    StoredItem item;
    for (const Value& answer : items) {
        EXPECT_FALSE(readStoredItem(answer, item)) << write(answer);
    }

    StoredPage page;
    std::vector<Value> pages = spoilt(pageAnswer());
    for (const Value& entry : spoilt(pageAnswer().get_obj().at("source").get_array()[0])) {
        pages.push_back(pageAnswer());
        pages.back().get_obj()["source"] = Array{entry};
    }
    for (const Value& missing : {Value(-1), Value("1"), Value(true)}) {
        pages.push_back(pageAnswer());
        pages.back().get_obj()["missing"] = missing;
    }
    for (const Value& answer : pages) {
        EXPECT_FALSE(readStoredPage(answer, "", 1, page)) << write(answer);
    }
    EXPECT_FALSE(readStoredPage(pageAnswer(), "", 0, page));       // longer than asked for
    EXPECT_FALSE(readStoredPage(pageAnswer(), "C:\\a", 1, page));  // leads in a circle
    EXPECT_TRUE(page.items.empty());
}

}  // namespace
}  // namespace dorvo
