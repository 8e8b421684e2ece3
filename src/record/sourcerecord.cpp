#include "record/sourcerecord.h"

namespace dorvo {
namespace {

constexpr size_t volumeHeader = 10;
constexpr size_t entryHeader = 54;
static_assert(longestEntryName == (sourceRecordMax - entryHeader - 2) / 2);

// Appends little-endian numbers to a record of a size known beforehand.
class Encoder {
public:
    Encoder(uint32_t tag, size_t size) {
        bytes_.reserve(size);
        number(tag, 4);
        number(size, 2);
    }
    void number(uint64_t value, int width) {
        for (int i = 0; i < width; ++i) {
            bytes_.push_back(static_cast<std::byte>(value >> (8 * i) & 0xFF));
        }
    }
    void text(std::u16string_view name) {
        for (const char16_t unit : name) {
            number(unit, 2);
        }
        number(0, 2);
    }
    std::vector<std::byte> take() { return std::move(bytes_); }

private:
    std::vector<std::byte> bytes_;
};

uint64_t number(std::span<const std::byte> bytes, size_t offset, int width) {
    uint64_t value = 0;
    for (int i = width - 1; i >= 0; --i) {
        value = value << 8 | std::to_integer<uint64_t>(bytes[offset + static_cast<size_t>(i)]);
    }
    return value;
}

constexpr size_t nameBytes(std::u16string_view name) {
    return 2 * name.size() + 2;
}

bool fits(std::u16string_view name, size_t header) {
    return name.size() <= (sourceRecordMax - header - 2) / 2 &&
           name.find(u'\0') == std::u16string_view::npos;
}

// True when the record has this tag and header and its sizes agree; the name's length and the
// header's stand in the last four bytes of the header.
bool isWhole(std::span<const std::byte> record, uint32_t tag, size_t header) {
    return record.size() >= header && number(record, 0, 4) == tag &&
           number(record, 4, 2) == record.size() && number(record, header - 2, 2) == header &&
           number(record, header - 4, 2) == record.size() - header;
}

// The text that fills the rest of the record up to its one NUL.
std::optional<std::u16string> nameOf(std::span<const std::byte> record, size_t header) {
    const size_t bytes = record.size() - header;
    if (bytes < 2 || bytes % 2 != 0 || number(record, record.size() - 2, 2) != 0) {
        return std::nullopt;
    }
    std::u16string name;
    name.reserve(bytes / 2 - 1);
    for (size_t at = header; at != record.size() - 2; at += 2) {
        const auto unit = static_cast<char16_t>(number(record, at, 2));
        if (unit == 0) {
            return std::nullopt;
        }
        name.push_back(unit);
    }
    return name;
}

}  // namespace

std::vector<std::byte> encodeSetStart() {
    Encoder record(tagSetStart, 8);
    record.number(1, 1);
    record.number(0, 1);
    return record.take();
}

std::vector<std::byte> encodeSetEnd() {
    return Encoder(tagSetEnd, sourceHeadSize).take();
}

std::optional<std::vector<std::byte>> encodeVolume(std::u16string_view name) {
    if (!fits(name, volumeHeader)) {
        return std::nullopt;
    }
    Encoder record(tagVolume, volumeHeader + nameBytes(name));
    record.number(nameBytes(name), 2);
    record.number(volumeHeader, 2);
    record.text(name);
    return record.take();
}

std::optional<std::vector<std::byte>> encodeEntry(const SourceEntry& entry) {
    if (!fits(entry.name, entryHeader)) {
        return std::nullopt;
    }
    const bool directory = (entry.attributes & directoryAttribute) != 0;
    Encoder record(directory ? tagDirectory : tagFile, entryHeader + nameBytes(entry.name));
    record.number(entry.attributes, 4);
    record.number(entry.creationTime, 8);
    record.number(entry.lastAccessTime, 8);
    record.number(entry.lastWriteTime, 8);
    record.number(entry.size >> 32, 4);
    record.number(entry.size, 4);
    record.number(entry.value, 8);
    record.number(nameBytes(entry.name), 2);
    record.number(entryHeader, 2);
    record.text(entry.name);
    return record.take();
}

std::optional<SourceHead> decodeSourceHead(std::span<const std::byte> bytes) {
    if (bytes.size() < sourceHeadSize) {
        return std::nullopt;
    }
    return SourceHead{static_cast<uint32_t>(number(bytes, 0, 4)),
                      static_cast<uint16_t>(number(bytes, 4, 2))};
}

std::optional<std::u16string> decodeVolume(std::span<const std::byte> record) {
    if (!isWhole(record, tagVolume, volumeHeader)) {
        return std::nullopt;
    }
    // The volume's two lengths stand in the same order as an entry's.
    return nameOf(record, volumeHeader);
}

std::optional<SourceEntry> decodeEntry(std::span<const std::byte> record) {
    const bool directory =
        record.size() >= entryHeader && (number(record, 6, 4) & directoryAttribute) != 0;
    if (!isWhole(record, directory ? tagDirectory : tagFile, entryHeader)) {
        return std::nullopt;
    }
    std::optional<std::u16string> name = nameOf(record, entryHeader);
    if (!name) {
        return std::nullopt;
    }
    SourceEntry entry;
    entry.attributes = static_cast<uint32_t>(number(record, 6, 4));
    entry.creationTime = number(record, 10, 8);
    entry.lastAccessTime = number(record, 18, 8);
    entry.lastWriteTime = number(record, 26, 8);
    entry.size = number(record, 34, 4) << 32 | number(record, 38, 4);
    entry.value = number(record, 42, 8);
    entry.name = std::move(*name);
    return entry;
}

}  // namespace dorvo
