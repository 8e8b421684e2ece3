// A record of a local backup's index, as it is and with the check sum that it should have: what
// decodes is the same after it was encoded.
#include <algorithm>
#include <boost/crc.hpp>
#include <vector>

#include "input.h"
#include "storage/local/localrecord.h"

using namespace dorvo;

namespace {

void decode(std::span<const std::byte> bytes) {
    if (const auto record = decodeLocalRecord(bytes)) {
        std::vector<std::byte> encoded;
        fuzz::require(encodeLocalRecord(*record, encoded) && std::ranges::equal(encoded, bytes));
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    decode(fuzz::bytes(data, size));
    std::vector<uint8_t> summed(data, data + size);
    if (size >= localRecordFixedSize) {
        boost::crc_32_type crc;
        crc.process_bytes(summed.data(), 4);
        crc.process_bytes(summed.data() + 8, size - 8);
        for (size_t i = 0; i < 4; ++i) {
            summed[4 + i] = static_cast<uint8_t>(crc.checksum() >> (8 * i));
        }
    }
    decode(fuzz::bytes(summed.data(), size));
    return 0;
}
