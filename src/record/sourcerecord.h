// The records of a source list as bytes: encoding and decoding, without files or an operating
// system. Layout and damage: docs/formats/source-list.md.
//
// Encoders answer nothing when the name does not fit a record. Decoders take exactly one whole
// record and answer nothing unless every length in it agrees; they never read past its end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace dorvo {

// Four letters as the little-endian number that stands for them in a record's head.
constexpr uint32_t sourceTag(const char (&letters)[5]) {
    uint32_t tag = 0;
    for (int i = 3; i >= 0; --i) {
        tag = tag << 8 | static_cast<unsigned char>(letters[i]);
    }
    return tag;
}

constexpr uint32_t tagSetStart = sourceTag("SSET");
constexpr uint32_t tagSetEnd = sourceTag("ESET");
constexpr uint32_t tagVolume = sourceTag("VOLB");
constexpr uint32_t tagFile = sourceTag("FILE");
constexpr uint32_t tagDirectory = sourceTag("DIRB");

constexpr size_t sourceHeadSize = 6;         // tag and total size
constexpr size_t sourceRecordMax = 65'535;   // of a whole record
constexpr size_t longestEntryName = 32'739;  // UTF-16 units of a file's or a directory's name
constexpr uint32_t directoryAttribute = 16;

struct SourceHead {
    uint32_t tag = 0;
    uint16_t size = 0;  // of the whole record, head included
};

// A file or a directory. Times are FILETIMEs as 64-bit counts.
struct SourceEntry {
    uint32_t attributes = 0;
    uint64_t creationTime = 0;
    uint64_t lastAccessTime = 0;
    uint64_t lastWriteTime = 0;
    uint64_t size = 0;
    uint64_t value = 0;  // the item number in the low half
    std::u16string name;

    bool operator==(const SourceEntry&) const = default;
};

std::vector<std::byte> encodeSetStart();
std::vector<std::byte> encodeSetEnd();
std::optional<std::vector<std::byte>> encodeVolume(std::u16string_view name);
// "DIRB" when the directory attribute is set, else "FILE".
std::optional<std::vector<std::byte>> encodeEntry(const SourceEntry& entry);

// The first six bytes of a record; nothing when there are fewer.
std::optional<SourceHead> decodeSourceHead(std::span<const std::byte> bytes);
std::optional<std::u16string> decodeVolume(std::span<const std::byte> record);
std::optional<SourceEntry> decodeEntry(std::span<const std::byte> record);

}  // namespace dorvo
