#include "storage/local/localrecord.h"

#include <gtest/gtest.h>

#include <functional>

namespace dorvo {
namespace {

// The example of docs/formats/local-storage.md.
constexpr std::string_view example =
    "6e0000007bbd2d750101000020200000000000001c000000deb19d0100803ed5"
    "dfb19d0100c0cb6ee0b19d010000590800000200000000002000000000000000"
    "1aba84b3b3e4bb80fbb1d70e2a95ce9b33221100554477668899aabbccddeeff"
    "43003a005c0061005c00fc006200";

LocalRecord sample() {
    LocalRecord record;
    record.compress = true;
    record.attributes = {0x2020,     0,          28,         0x019db1de, 0xd53e8000,
                         0x019db1df, 0x6ecbc000, 0x019db1e0, 0x08590000};
    record.container = {0x33, 0x22, 0x11, 0x00, 0x55, 0x44, 0x77, 0x66,
                        0x88, 0x99, 0xaa, 0xbb, 0xcc, 0xdd, 0xee, 0xff};
    record.offset = 131072;
    record.size = 32;
    record.md5 = digestBytes("1aba84b3b3e4bb80fbb1d70e2a95ce9b");
    record.path = u"C:\\a\\\u00fcb";
    return record;
}

std::vector<std::byte> encoded(const LocalRecord& record) {
    std::vector<std::byte> bytes;
    EXPECT_TRUE(encodeLocalRecord(record, bytes));
    return bytes;
}

std::string hex(std::span<const std::byte> bytes) {
    std::string text;
    for (const std::byte value : bytes) {
        for (const int shift : {4, 0}) {
            text += "0123456789abcdef"[std::to_integer<int>(value) >> shift & 15];
        }
    }
    return text;
}

TEST(LocalRecord, HasTheBytesOfTheExample) {
    const std::vector<std::byte> bytes = encoded(sample());
    EXPECT_EQ(hex(bytes), example);
    const auto back = decodeLocalRecord(bytes);
    ASSERT_TRUE(back);
    EXPECT_EQ(encoded(*back), bytes);
    EXPECT_EQ(back->path, sample().path);
    EXPECT_EQ(back->lastWrite(), 0x019db1e008590000U);
}

TEST(LocalRecord, EveryCutAndEveryFlippedBitIsDamage) {
    const std::vector<std::byte> bytes = encoded(sample());
    for (size_t size = 0; size < bytes.size(); ++size) {
        EXPECT_FALSE(decodeLocalRecord(std::span(bytes).first(size))) << size;
    }
    for (size_t bit = 0; bit < 8 * bytes.size(); ++bit) {
        std::vector<std::byte> flipped = bytes;
        flipped[bit / 8] ^= static_cast<std::byte>(1U << bit % 8);
        EXPECT_FALSE(decodeLocalRecord(flipped)) << bit;
    }
}

TEST(LocalRecord, SenseIsAskedForBesidesTheCheckSum) {
    struct Row {
        const char* name;
        bool valid;
        std::function<void(LocalRecord&)> change;
    };
    using Kind = LocalRecord::Kind;
    const Row rows[] = {
        {"as it is", true, [](LocalRecord&) {}},
        {"the longest path", true, [](LocalRecord& r) { r.path.assign(longestLocalPath, u'x'); }},
        {"half a surrogate", true, [](LocalRecord& r) { r.path = u"C:\\\xd800"; }},
        {"no path", false, [](LocalRecord& r) { r.path.clear(); }},
        {"a NUL", false, [](LocalRecord& r) { r.path[2] = u'\0'; }},
        {"an unknown kind", false, [](LocalRecord& r) { r.kind = static_cast<Kind>(9); }},
        {"no package", false, [](LocalRecord& r) { r.size = 0; }},
        {"no whole cipher blocks", false, [](LocalRecord& r) { r.size = 40; }},
        {"an end beyond all numbers", false, [](LocalRecord& r) { r.offset = UINT64_MAX - 31; }},
        {"a file that is a folder", false, [](LocalRecord& r) { r.attributes.attributes = 16; }},
        {"a folder that is a file", false, [](LocalRecord& r) { r.kind = Kind::folder; }},
        {"a named check point", false, [](LocalRecord& r) { r.kind = Kind::checkpoint; }},
        {"an awaited file", true, [](LocalRecord& r) { r.kind = Kind::awaited; }},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        LocalRecord record = sample();
        row.change(record);
        EXPECT_EQ(decodeLocalRecord(encoded(record)).has_value(), row.valid);
    }
    LocalRecord record = sample();
    record.path.assign(longestLocalPath + 1, u'x');
    std::vector<std::byte> bytes;
    EXPECT_FALSE(encodeLocalRecord(record, bytes));
    EXPECT_TRUE(bytes.empty());
}

}  // namespace
}  // namespace dorvo
