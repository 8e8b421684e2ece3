#include "storage/local/localrecord.h"

#include <algorithm>
#include <boost/crc.hpp>
#include <charconv>

namespace dorvo {
namespace {

constexpr size_t checksumAt = 4;
constexpr size_t afterChecksum = 8;
constexpr uint64_t cipherBlock = 16;

// Appends little-endian numbers.
class Writer {
public:
    explicit Writer(std::vector<std::byte>& bytes) : bytes_(bytes) {}

    template <class T>
    void number(T value) {
        for (size_t i = 0; i < sizeof(T); ++i) {
            bytes_.push_back(static_cast<std::byte>(value >> (8 * i)));
        }
    }
    void raw(std::span<const uint8_t> bytes) {
        const auto view = std::as_bytes(bytes);
        bytes_.insert(bytes_.end(), view.begin(), view.end());
    }

private:
    std::vector<std::byte>& bytes_;
};

// Takes them off the front again; the caller has checked that they are there.
class Reader {
public:
    explicit Reader(std::span<const std::byte> bytes) : bytes_(bytes) {}

    template <class T>
    T number() {
        T value = 0;
        for (size_t i = 0; i < sizeof(T); ++i) {
            value = static_cast<T>(value | static_cast<T>(static_cast<T>(bytes_[i]) << (8 * i)));
        }
        bytes_ = bytes_.subspan(sizeof(T));
        return value;
    }
    void raw(std::span<uint8_t> target) {
        std::copy_n(bytes_.begin(), target.size(), std::as_writable_bytes(target).begin());
        bytes_ = bytes_.subspan(target.size());
    }
    size_t left() const { return bytes_.size(); }

private:
    std::span<const std::byte> bytes_;
};

uint32_t checksum(std::span<const std::byte> record) {
    boost::crc_32_type crc;
    crc.process_bytes(record.data(), checksumAt);
    crc.process_bytes(record.data() + afterChecksum, record.size() - afterChecksum);
    return static_cast<uint32_t>(crc.checksum());
}

constexpr auto numbersOf(auto& item) {
    return std::array{&item.attributes,    &item.sizeHigh,      &item.sizeLow,
                      &item.creationHigh,  &item.creationLow,   &item.lastAccessHigh,
                      &item.lastAccessLow, &item.lastWriteHigh, &item.lastWriteLow};
}

bool makesSense(const LocalRecord& record) {
    const bool named = !record.path.empty() && record.path.find(u'\0') == std::u16string::npos;
    switch (record.kind) {
        case LocalRecord::Kind::file:
            return named && !record.attributes.directory() && record.size != 0 &&
                   record.size % cipherBlock == 0 && record.offset <= UINT64_MAX - record.size;
        case LocalRecord::Kind::folder: return named && record.attributes.directory();
        case LocalRecord::Kind::failed:
        case LocalRecord::Kind::awaited: return named;
        case LocalRecord::Kind::checkpoint: return record.path.empty();
    }
    return false;
}

}  // namespace

bool encodeLocalRecord(const LocalRecord& record, std::vector<std::byte>& bytes) {
    if (record.path.size() > longestLocalPath) {
        return false;
    }
    const size_t begin = bytes.size();
    Writer writer(bytes);
    writer.number(static_cast<uint32_t>(localRecordFixedSize + 2 * record.path.size()));
    writer.number(uint32_t{0});
    writer.number(static_cast<uint8_t>(record.kind));
    writer.number(static_cast<uint8_t>(record.compress));
    writer.number(uint16_t{0});
    for (const uint32_t* value : numbersOf(record.attributes)) {
        writer.number(*value);
    }
    writer.number(record.offset);
    writer.number(record.size);
    writer.raw(record.md5);
    writer.raw(record.container);
    for (const char16_t unit : record.path) {
        writer.number(static_cast<uint16_t>(unit));
    }
    const uint32_t sum = checksum(std::span(bytes).subspan(begin));
    for (size_t i = 0; i < sizeof(sum); ++i) {
        bytes[begin + checksumAt + i] = static_cast<std::byte>(sum >> (8 * i));
    }
    return true;
}

std::optional<size_t> localRecordSize(std::span<const std::byte> bytes) {
    if (bytes.size() < sizeof(uint32_t)) {
        return std::nullopt;
    }
    const size_t size = Reader(bytes).number<uint32_t>();
    if (size < localRecordFixedSize || size > localRecordMax || size % 2 != 0) {
        return std::nullopt;
    }
    return size;
}

std::optional<LocalRecord> decodeLocalRecord(std::span<const std::byte> bytes) {
    if (localRecordSize(bytes) != bytes.size()) {
        return std::nullopt;
    }
    Reader reader(bytes.subspan(checksumAt));
    if (reader.number<uint32_t>() != checksum(bytes)) {
        return std::nullopt;
    }
    LocalRecord record;
    record.kind = static_cast<LocalRecord::Kind>(reader.number<uint8_t>());
    const auto compress = reader.number<uint8_t>();
    const auto reserved = reader.number<uint16_t>();
    record.compress = compress != 0;
    for (uint32_t* value : numbersOf(record.attributes)) {
        *value = reader.number<uint32_t>();
    }
    record.offset = reader.number<uint64_t>();
    record.size = reader.number<uint64_t>();
    reader.raw(record.md5);
    reader.raw(record.container);
    record.path.reserve(reader.left() / 2);
    while (reader.left() != 0) {
        record.path.push_back(static_cast<char16_t>(reader.number<uint16_t>()));
    }
    if (compress > 1 || reserved != 0 || !makesSense(record)) {
        return std::nullopt;
    }
    return record;
}

std::array<uint8_t, 16> digestBytes(std::string_view digits) {
    std::array<uint8_t, 16> bytes{};
    if (digits.size() != 2 * bytes.size()) {
        return {};
    }
    for (size_t i = 0; i < bytes.size(); ++i) {
        const char* const begin = digits.data() + 2 * i;
        if (std::from_chars(begin, begin + 2, bytes[i], 16).ptr != begin + 2) {
            return {};
        }
    }
    return bytes;
}

}  // namespace dorvo
