// A source list, record by record: what decodes is the same after it was encoded and decoded again.
#include "input.h"
#include "record/sourcerecord.h"

using namespace dorvo;

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::span<const std::byte> list = fuzz::bytes(data, size);
    while (const auto head = decodeSourceHead(list)) {
        if (head->size < sourceHeadSize || head->size > list.size()) {
            break;
        }
        const auto record = list.first(head->size);
        list = list.subspan(head->size);
        if (const auto volume = decodeVolume(record)) {
            const auto encoded = encodeVolume(*volume);
            fuzz::require(encoded.has_value() && decodeVolume(*encoded) == volume);
        }
        if (const auto entry = decodeEntry(record)) {
            const auto encoded = encodeEntry(*entry);
            fuzz::require(encoded.has_value() && decodeEntry(*encoded) == entry);
        }
    }
    return 0;
}
