#include "record/sourcerecord.h"

#include <gtest/gtest.h>

#include <sstream>
#include <utility>

namespace dorvo {
namespace {

std::vector<std::byte> fromHex(const std::string& text) {
    std::vector<std::byte> bytes;
    std::istringstream numbers(text);
    for (std::string number; numbers >> number;) {
        bytes.push_back(static_cast<std::byte>(std::stoi(number, nullptr, 16)));
    }
    return bytes;
}

// The worked example of docs/formats/source-list.md.
const char* const setHex = "53 53 45 54 08 00 01 00";
const char* const volumeHex = "56 4f 4c 42 12 00 08 00 0a 00 43 00 3a 00 5c 00 00 00";
const char* const fileHex =
    "46 49 4c 45 46 00 20 20 00 00 00 80 3e d5 de b1 9d 01 00 c0 cb 6e df b1 9d 01 "
    "00 00 59 08 e0 b1 9d 01 01 00 00 00 05 00 00 00 02 00 00 00 00 00 00 00 10 00 36 00 "
    "43 00 3a 00 5c 00 61 00 5c 00 fc 00 62 00 00 00";
const char* const endHex = "45 53 45 54 06 00";

SourceEntry exampleFile() {
    SourceEntry entry;
    entry.attributes = 0x2020;
    entry.creationTime = 0x019DB1DED53E8000;
    entry.lastAccessTime = 0x019DB1DF6ECBC000;
    entry.lastWriteTime = 0x019DB1E008590000;
    entry.size = 0x100000005;
    entry.value = 2;
    entry.name = u"C:\\a\\\u00fcb";
    return entry;
}

std::vector<std::byte> directoryRecord() {
    SourceEntry entry;
    entry.attributes = directoryAttribute;
    entry.name = u"D";
    return *encodeEntry(entry);
}

TEST(SourceRecord, MatchesTheDocumentedBytes) {
    EXPECT_EQ(encodeSetStart(), fromHex(setHex));
    EXPECT_EQ(encodeVolume(u"C:\\"), fromHex(volumeHex));
    EXPECT_EQ(encodeEntry(exampleFile()), fromHex(fileHex));
    EXPECT_EQ(encodeSetEnd(), fromHex(endHex));

    EXPECT_EQ(decodeVolume(fromHex(volumeHex)), u"C:\\");
    EXPECT_EQ(decodeEntry(fromHex(fileHex)), exampleFile());
    EXPECT_EQ(decodeSourceHead(fromHex(setHex))->tag, tagSetStart);
    EXPECT_EQ(decodeSourceHead(fromHex(setHex))->size, 8);
    EXPECT_EQ(decodeSourceHead(directoryRecord())->tag, tagDirectory);
}

TEST(SourceRecord, HoldsNamesUpToTheLargestRecordAndNoLonger) {
    const struct {
        const char* what;
        size_t header;
        size_t longest;
    } rows[] = {{"entry", 54, 32739}, {"volume", 10, 32761}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        const auto encode = [&](size_t length) {
            SourceEntry entry;
            entry.name = std::u16string(length, u'x');
            return row.header == 54 ? encodeEntry(entry) : encodeVolume(entry.name);
        };
        const auto largest = encode(row.longest);
        ASSERT_TRUE(largest);
        EXPECT_EQ(largest->size(), row.header + 2 * row.longest + 2);
        EXPECT_LE(largest->size(), sourceRecordMax);
        EXPECT_EQ(decodeSourceHead(*largest)->size, largest->size());
        EXPECT_FALSE(encode(row.longest + 1));
        EXPECT_TRUE(encode(0));
    }
    EXPECT_FALSE(encodeVolume(std::u16string_view(u"a\0b", 3)));
}

TEST(SourceRecord, RefusesEveryTruncation) {
    for (const auto& record : {fromHex(volumeHex), fromHex(fileHex), directoryRecord()}) {
        for (size_t size = 0; size < record.size(); ++size) {
            // A copy of exactly that size, so that the sanitizer sees a read past its end.
            const std::vector<std::byte> part(record.begin(),
                                              record.begin() + static_cast<std::ptrdiff_t>(size));
            EXPECT_FALSE(decodeVolume(part)) << size;
            EXPECT_FALSE(decodeEntry(part)) << size;
            EXPECT_EQ(decodeSourceHead(part).has_value(), size >= sourceHeadSize) << size;
        }
    }
}

// Whatever byte is flipped, in whatever way: what decodes at all is exactly what was encoded so.
TEST(SourceRecord, AFlippedByteIsRefusedOrReadAsItStands) {
    for (const auto& record : {fromHex(volumeHex), fromHex(fileHex), directoryRecord()}) {
        for (size_t at = 0; at < record.size(); ++at) {
            for (unsigned flip = 1; flip < 256; ++flip) {
                std::vector<std::byte> damaged = record;
                damaged[at] ^= static_cast<std::byte>(flip);
                if (const auto name = decodeVolume(damaged)) {
                    EXPECT_EQ(encodeVolume(*name), damaged);
                }
                if (const auto entry = decodeEntry(damaged)) {
                    EXPECT_EQ(encodeEntry(*entry), damaged);
                }
                if (at < 6) {
                    EXPECT_FALSE(decodeVolume(damaged)) << at;
                    EXPECT_FALSE(decodeEntry(damaged)) << at;
                }
            }
        }
    }
}

TEST(SourceRecord, RefusesNamesThatDoNotEndAtTheEnd) {
    for (const auto& [name, hex] :
         {std::pair{"no NUL", "56 4f 4c 42 12 00 08 00 0a 00 43 00 3a 00 5c 00 00 01"},
          {"a NUL inside", "56 4f 4c 42 12 00 08 00 0a 00 43 00 00 00 5c 00 00 00"},
          {"half a character", "56 4f 4c 42 0b 00 01 00 0a 00 00"},
          {"no name at all", "56 4f 4c 42 0a 00 00 00 0a 00"}}) {
        EXPECT_FALSE(decodeVolume(fromHex(hex))) << name;
    }
}

}  // namespace
}  // namespace dorvo
