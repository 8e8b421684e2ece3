// A stream of packages: what is taken for one lies within it.
#include <vector>

#include "input.h"
#include "storage/package/package_reader.h"

using namespace dorvo;

namespace {

template <class Part>
void requireWithin(std::span<const uint8_t> package, const Part& part) {
    const auto* begin = reinterpret_cast<const uint8_t*>(part.data());
    fuzz::require(part.empty() || (begin >= package.data() &&
                                   begin + part.size() <= package.data() + package.size()));
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::span<const uint8_t> stream(data, size);
    while (front_package_fault(stream) == nullptr) {
        const uint32_t length = stated_length(stream.data());
        fuzz::require(length != 0 && length <= stream.size());
        // In memory of its own, so that a read past its end shows.
        const std::vector<uint8_t> package(stream.begin(), stream.begin() + length);
        package_fault fault = nullptr;
        if (const auto file = read_file_package(package, fault)) {
            requireWithin(package, file->name);
        } else {
            fuzz::require(fault != nullptr);
        }
        fault = nullptr;
        if (const auto piece = read_data_package(package, fault)) {
            requireWithin(package, piece->extra);
            requireWithin(package, piece->content);
            fuzz::require(piece->extra.size() <= package_extra_max);
        } else {
            fuzz::require(fault != nullptr);
        }
        stream = stream.subspan(length);
    }
    package_fault fault = nullptr;
    static_cast<void>(read_file_package(stream, fault));
    static_cast<void>(read_data_package(stream, fault));
    return 0;
}
