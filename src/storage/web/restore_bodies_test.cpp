#include "storage/web/restore_bodies.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace dorvo {
namespace {

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

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

TEST(RestoreBodies, APathIsSplitAtItsLastBackslash) {
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

TEST(RestoreBodies, ReadsWholeAnswers) {
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

TEST(RestoreBodies, RefusesAnswersOfAnotherShape) {
    RestoreTicket ticket{"kept"};
    for (const Value& answer : spoilt(parsed(ticketText))) {
        EXPECT_FALSE(readRestoreTicket(answer, ticket)) << json_spirit::write(answer);
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
        EXPECT_FALSE(readStoredItem(answer, item)) << json_spirit::write(answer);
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
        EXPECT_FALSE(readStoredPage(answer, "", 1, page)) << json_spirit::write(answer);
    }
    EXPECT_FALSE(readStoredPage(pageAnswer(), "", 0, page));       // longer than asked for
    EXPECT_FALSE(readStoredPage(pageAnswer(), "C:\\a", 1, page));  // leads in a circle
    EXPECT_TRUE(page.items.empty());
}

}  // namespace
}  // namespace dorvo
