// The records of a local backup's index as bytes: encoding and decoding, without files or an
// operating system. Layout and damage: docs/formats/local-storage.md.
//
// The decoder takes exactly one whole record and answers nothing unless its check sum and every
// field make sense; it never reads past its end.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "storage/items.h"

namespace dorvo {

// What an index begins with.
constexpr std::string_view localIndexMagic = "DORVOIX1";

constexpr size_t localRecordFixedSize = 96;
constexpr size_t longestLocalPath = 32'767;  // UTF-16 units
constexpr size_t localRecordMax = localRecordFixedSize + 2 * longestLocalPath;

// A UUID's bytes as the activity record has them.
using LocalInstanceId = std::array<uint8_t, 16>;

struct LocalRecord {
    enum class Kind : uint8_t {
        file = 1,
        folder = 2,
        failed = 3,      // the path is on the error list
        awaited = 4,     // the run has to store the path
        checkpoint = 5,  // what stands before it has been on the disk
    };

    Kind kind = Kind::file;
    bool compress = false;  // the package is
    ItemAttributes attributes;
    LocalInstanceId container{};  // the instance in whose packages the package lies
    uint64_t offset = 0;          // where it begins there
    uint64_t size = 0;            // of the package; of a failed item its error code
    std::array<uint8_t, 16> md5{};
    std::u16string path;

    uint64_t lastWrite() const {
        return uint64_t{attributes.lastWriteHigh} << 32 | attributes.lastWriteLow;
    }
};

// Appends the record's bytes. False, with nothing appended, for a path that does not fit.
bool encodeLocalRecord(const LocalRecord& record, std::vector<std::byte>& bytes);

// The size that a record's first four bytes tell; nothing when there are fewer, or it is none.
std::optional<size_t> localRecordSize(std::span<const std::byte> bytes);
std::optional<LocalRecord> decodeLocalRecord(std::span<const std::byte> bytes);

// The 16 bytes of a digest's 32 hexadecimal digits; zeros for anything else.
std::array<uint8_t, 16> digestBytes(std::string_view digits);

}  // namespace dorvo
