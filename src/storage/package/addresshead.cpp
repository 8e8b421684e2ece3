#include "storage/package/addresshead.h"

namespace dorvo {
namespace {

chunk_address value_at(const chunk_address* address) {
    return read_wire<chunk_address>(reinterpret_cast<const uint8_t*>(address));
}

}  // namespace

void addresshead::init(chunk_address* address) {
    set(address);
    set_address_head(0, 0);
}

void addresshead::set(chunk_address* address) {
    address_ = address;
}

void addresshead::set_address_head(uint16_t offset, uint16_t length) {
    write_wire(reinterpret_cast<uint8_t*>(address_), chunk_address{offset, length});
}

uint16_t addresshead::get_offset() const {
    return value_at(address_).offset;
}

uint16_t addresshead::get_length() const {
    return value_at(address_).length;
}

void addresshead::get_content(uint8_t* base, uint8_t** out) const {
    *out = base + get_offset();
}

}  // namespace dorvo
