#include "storage/package/package_reader.h"

namespace dorvo {
namespace {

// Nothing when a package of this magic stands at the front, with at least its head.
package_fault head_fault(std::span<const uint8_t> bytes, uint32_t magic, size_t head_size) {
    if (const package_fault fault = front_package_fault(bytes)) {
        return fault;
    }
    const auto prefix = read_wire<package_prefix>(bytes.data());
    if (prefix.magic != magic) {
        return "it begins with another magic";
    }
    return prefix.length < head_size ? "it is shorter than its head" : nullptr;
}

// The tail that begins behind the head and ends within the package.
package_fault tail_fault(const chunk_address& tail, size_t head_size, size_t length) {
    if (tail.offset < head_size || tail.offset > length) {
        return "its tail begins outside of it";
    }
    return tail.length > length - tail.offset ? "its tail ends outside of it" : nullptr;
}

}  // namespace

uint32_t stated_length(const uint8_t* package) {
    return read_wire<uint32_t>(package);
}

package_fault front_package_fault(std::span<const uint8_t> bytes) {
    if (bytes.size() < sizeof(package_prefix)) {
        return "it is shorter than any package";
    }
    const uint32_t length = stated_length(bytes.data());
    if (length < sizeof(package_prefix)) {
        return "it says to be shorter than any package";
    }
    return length > bytes.size() ? "it is shorter than it says" : nullptr;
}

std::optional<file_package> read_file_package(std::span<const uint8_t> bytes,
                                              package_fault& fault) {
    fault = head_fault(bytes, file_package_magic, sizeof(file_package_head));
    if (fault != nullptr) {
        return std::nullopt;
    }
    const auto head = read_wire<file_package_head>(bytes.data());
    fault = tail_fault(head.name, sizeof(head), head.package.length);
    if (fault != nullptr) {
        return std::nullopt;
    }
    const auto name = bytes.subspan(head.name.offset, head.name.length);
    return file_package{head, {reinterpret_cast<const char*>(name.data()), name.size()}};
}

std::optional<data_package> read_data_package(std::span<const uint8_t> bytes,
                                              package_fault& fault) {
    fault = head_fault(bytes, data_package_magic, sizeof(data_package_head));
    if (fault != nullptr) {
        return std::nullopt;
    }
    const auto head = read_wire<data_package_head>(bytes.data());
    fault = tail_fault(head.extra, sizeof(head), head.package.length);
    if (fault == nullptr && head.extra.length > package_extra_max) {
        fault = "its encryption extra is too long";
    }
    if (fault != nullptr) {
        return std::nullopt;
    }
    const size_t content = size_t{head.extra.offset} + head.extra.length;
    return data_package{head, bytes.subspan(head.extra.offset, head.extra.length),
                        bytes.subspan(content, head.package.length - content)};
}

}  // namespace dorvo
