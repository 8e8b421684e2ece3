#include "storage/package/package_reader.h"

#include <gtest/gtest.h>

#include "storage/package/golden_packages.h"

namespace dorvo {
namespace {

using test::Bytes;
using test::from_hex;

bool reads_file(std::span<const uint8_t> bytes) {
    package_fault fault = nullptr;
    const bool read = read_file_package(bytes, fault).has_value();
    EXPECT_EQ(read, fault == nullptr);
    return read;
}

bool reads_data(std::span<const uint8_t> bytes) {
    package_fault fault = nullptr;
    const bool read = read_data_package(bytes, fault).has_value();
    EXPECT_EQ(read, fault == nullptr);
    return read;
}

TEST(PackageReader, RefusesEveryTruncationAndLeavesWhatFollows) {
    for (const bool file : {true, false}) {
        const Bytes whole = from_hex(file ? test::golden_file : test::golden_data);
        const auto reads = file ? reads_file : reads_data;
        for (size_t size = 0; size < whole.size(); ++size) {
            // Memory of just that size, so that a sanitizer sees a read beyond it.
            const Bytes cut(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size));
            EXPECT_FALSE(reads(cut)) << size;
            EXPECT_NE(front_package_fault(cut), nullptr) << size;
        }
        Bytes more = whole;
        more.resize(more.size() + 5);
        EXPECT_TRUE(reads(more));
        EXPECT_EQ(front_package_fault(more), nullptr);
    }
}

TEST(PackageReader, BelievesNoHeadThatPointsOutside) {
    // Values of a u16 of the head: what they make of its length, its name or its extra.
    struct Row {
        const char* what;
        bool file;
        size_t at;
        std::vector<uint16_t> bad;
        std::vector<uint16_t> good;
    };
    const Row rows[] = {
        {"length: none, in the prefix, in the head, without the name, too long",
         true,
         0,
         {0, 7, 63, 64, 79, 81},
         {}},
        {"high half of the length", true, 2, {0xFFFF}, {}},
        {"magic", true, 4, {0x4154}, {}},
        {"name: in the head, nowhere, ends or begins outside",
         true,
         60,
         {63, 0, 65, 81, 0xFFFF},
         {}},
        {"name's length", true, 62, {17, 0xFFFF}, {0, 15}},
        {"length: in the head, in the extra", false, 0, {35, 51}, {52}},
        {"magic", false, 4, {0x4452}, {}},
        {"extra: in the head, never placed, ends or begins outside",
         false,
         32,
         {35, 0, 69, 85},
         {68}},
        {"extra's length", false, 34, {17, 0xFFFF}, {3}},
    };
    for (const Row& row : rows) {
        const auto reads = [&](uint16_t value) {
            Bytes bytes = from_hex(row.file ? test::golden_file : test::golden_data);
            write_wire(bytes.data() + row.at, value);
            return (row.file ? reads_file : reads_data)(bytes);
        };
        for (const uint16_t value : row.bad) {
            EXPECT_FALSE(reads(value)) << (row.file ? "file: " : "data: ") << row.what << value;
        }
        for (const uint16_t value : row.good) {
            EXPECT_TRUE(reads(value)) << (row.file ? "file: " : "data: ") << row.what << value;
        }
    }
}

}  // namespace
}  // namespace dorvo
