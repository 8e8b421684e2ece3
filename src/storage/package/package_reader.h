// Takes a received package apart after checking that it holds what it says. Pure.
//
// Nothing beyond the given bytes is read, whatever they are; what comes out points into them.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "storage/package/package_wire.h"

namespace dorvo {

struct file_package {
    file_package_head head;
    std::string_view name;  // UTF-8, not terminated
};

struct data_package {
    data_package_head head;
    std::span<const uint8_t> extra;    // at most package_extra_max bytes
    std::span<const uint8_t> content;  // processed
};

// What is wrong, in words for the log; null for nothing.
using package_fault = const char*;

// The package's own word of its length, from its first four bytes.
uint32_t stated_length(const uint8_t* package);

// Whether a whole package stands at the front of `bytes`, going by its length alone.
package_fault front_package_fault(std::span<const uint8_t> bytes);

// The package at the front of `bytes`; without one, `fault` tells why.
std::optional<file_package> read_file_package(std::span<const uint8_t> bytes, package_fault& fault);
std::optional<data_package> read_data_package(std::span<const uint8_t> bytes, package_fault& fault);

}  // namespace dorvo
