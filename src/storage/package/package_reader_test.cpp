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

TEST(PackageReader, ReadsTheExamples) {
    package_fault fault = nullptr;
    const Bytes file_bytes = from_hex(test::golden_file);
    const auto file = read_file_package(file_bytes, fault);
    ASSERT_TRUE(file.has_value()) << fault;
    EXPECT_EQ(file->name, test::golden_name);
    EXPECT_EQ(+file->head.attributes, 0x20u);
    EXPECT_EQ(+file->head.size, 28u);
    EXPECT_EQ(+file->head.last_write, test::golden_time + 10'000'000);
    EXPECT_EQ(+file->head.last_access, test::golden_time + 20'000'000);
    EXPECT_EQ(+file->head.creation, test::golden_time);

    const Bytes data_bytes = from_hex(test::golden_compressed_data);
    const auto data = read_data_package(data_bytes, fault);
    ASSERT_TRUE(data.has_value()) << fault;
    EXPECT_EQ(+data->head.flags, 3u);
    EXPECT_EQ(+data->head.content_length, 28u);
    EXPECT_EQ(+data->head.check, 0x11223344u);
    EXPECT_EQ(+data->head.processed_check, 0x55667788u);
    EXPECT_EQ(+data->head.compression, 2u);
    EXPECT_EQ(+data->head.compression_level, 6u);
    EXPECT_EQ(+data->head.encryption, 1u);
    EXPECT_EQ(data->extra.data(), data_bytes.data() + 36);
    EXPECT_EQ(data->extra.size(), 16u);
    EXPECT_EQ(data->content.data(), data_bytes.data() + 52);
    EXPECT_EQ(data->content.size(), 32u);
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
    struct Row {
        const char* what;
        bool file;
        size_t at;  // of a u16
        uint16_t value;
        bool good;
    };
    const Row rows[] = {
        {"no length", true, 0, 0, false},
        {"a length below the prefix", true, 0, 7, false},
        {"a length below the head", true, 0, 63, false},
        {"the head alone, with a name behind it", true, 0, 64, false},
        {"a name cut off by the length", true, 0, 79, false},
        {"a length beyond the bytes", true, 0, 81, false},
        {"a huge length", true, 2, 0xFFFF, false},
        {"another magic", true, 4, 0x4154, false},
        {"a name in the head", true, 60, 63, false},
        {"a name nowhere", true, 60, 0, false},
        {"a name that ends outside", true, 60, 65, false},
        {"a name that begins outside", true, 60, 81, false},
        {"a name far outside", true, 60, 0xFFFF, false},
        {"a name one byte too long", true, 62, 17, false},
        {"a name far too long", true, 62, 0xFFFF, false},
        {"no name", true, 62, 0, true},
        {"a shorter name", true, 62, 15, true},
        {"a length below the head", false, 0, 35, false},
        {"an extra cut off by the length", false, 0, 51, false},
        {"no content", false, 0, 52, true},
        {"another magic", false, 4, 0x4452, false},
        {"an extra in the head", false, 32, 35, false},
        {"an extra never placed", false, 32, 0, false},
        {"an extra later on", false, 32, 68, true},
        {"an extra that ends outside", false, 32, 69, false},
        {"an extra that begins outside", false, 32, 85, false},
        {"an extra of 17 bytes", false, 34, 17, false},
        {"an extra far too long", false, 34, 0xFFFF, false},
        {"a short extra", false, 34, 3, true},
    };
    for (const Row& row : rows) {
        Bytes bytes = from_hex(row.file ? test::golden_file : test::golden_data);
        write_wire(bytes.data() + row.at, row.value);
        EXPECT_EQ((row.file ? reads_file : reads_data)(bytes), row.good)
            << (row.file ? "file: " : "data: ") << row.what;
    }
}

}  // namespace
}  // namespace dorvo
