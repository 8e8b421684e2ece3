// The heads of packages as they lie on the wire: little-endian, unaligned, nothing between fields.
// What the fields mean: docs/formats/package-stream.md.
//
// They are copied in and out of bytes with read_wire and write_wire, never referred to in place.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace dorvo {

static_assert(std::endian::native == std::endian::little, "the heads are copied as they are");

#pragma pack(push, 1)

// Where a package's tail lies, counted from the package's begin.
struct chunk_address {
    uint16_t offset;
    uint16_t length;
};
static_assert(sizeof(chunk_address) == 4 && offsetof(chunk_address, length) == 2);

// What every package begins with.
struct package_prefix {
    uint32_t length;  // of the whole package
    uint32_t magic;
};
static_assert(sizeof(package_prefix) == 8 && offsetof(package_prefix, magic) == 4);

struct file_package_head {
    package_prefix package;
    uint8_t identifier[16];
    uint32_t attributes;
    uint64_t size;
    uint64_t last_write;
    uint64_t last_access;
    uint64_t creation;
    chunk_address name;
};
static_assert(sizeof(file_package_head) == 64);
static_assert(offsetof(file_package_head, package) == 0);
static_assert(offsetof(file_package_head, identifier) == 8);
static_assert(offsetof(file_package_head, attributes) == 24);
static_assert(offsetof(file_package_head, size) == 28);
static_assert(offsetof(file_package_head, last_write) == 36);
static_assert(offsetof(file_package_head, last_access) == 44);
static_assert(offsetof(file_package_head, creation) == 52);
static_assert(offsetof(file_package_head, name) == 60);

struct data_package_head {
    package_prefix package;
    uint32_t flags;
    uint32_t content_length;
    uint32_t check;
    uint32_t processed_check;
    uint16_t compression;
    uint16_t compression_level;
    uint16_t encryption;
    uint8_t reserved[2];
    chunk_address extra;
};
static_assert(sizeof(data_package_head) == 36);
static_assert(offsetof(data_package_head, package) == 0);
static_assert(offsetof(data_package_head, flags) == 8);
static_assert(offsetof(data_package_head, content_length) == 12);
static_assert(offsetof(data_package_head, check) == 16);
static_assert(offsetof(data_package_head, processed_check) == 20);
static_assert(offsetof(data_package_head, compression) == 24);
static_assert(offsetof(data_package_head, compression_level) == 26);
static_assert(offsetof(data_package_head, encryption) == 28);
static_assert(offsetof(data_package_head, reserved) == 30);
static_assert(offsetof(data_package_head, extra) == 32);

#pragma pack(pop)

constexpr uint32_t file_package_magic = 0x57484452;
constexpr uint32_t data_package_magic = 0x44415441;
constexpr uint32_t end_of_data_flag = 1;
constexpr uint16_t zlib_compression = 2;
constexpr size_t package_extra_max = 16;

template <class Wire>
Wire read_wire(const uint8_t* bytes) {
    static_assert(std::is_trivially_copyable_v<Wire> && std::is_standard_layout_v<Wire>);
    Wire value;
    std::memcpy(&value, bytes, sizeof(value));
    return value;
}

template <class Wire>
void write_wire(uint8_t* bytes, const Wire& value) {
    static_assert(std::is_trivially_copyable_v<Wire> && std::is_standard_layout_v<Wire>);
    std::memcpy(bytes, &value, sizeof(value));
}

}  // namespace dorvo
