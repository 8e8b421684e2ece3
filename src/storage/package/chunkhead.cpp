#include "storage/package/chunkhead.h"

#include <ace/os_include/sys/os_uio.h>
#include <windows.h>

#include <vector>

#include "base/log.h"
#include "http_util/http_invoker_t.h"
#include "http_util/message_t.h"
#include "storage/package/package_reader.h"

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

bool chunkhead::handle_head(uint8_t*) {
    return true;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): by value in the interface
bool chunkhead::send_package(HTTP_Invoker_T) {
    return true;
}

bool chunkhead::handle_head(std::span<uint8_t> received) {
    if (const package_fault fault = front_package_fault(received)) {
        return refuse(fault);
    }
    return handle_head(received.data());
}

bool chunkhead::refuse(const char* fault) {
    return logFailed(ERROR_INVALID_DATA, "Refused a package {%s}, error-code = %d.\n", fault,
                     ERROR_INVALID_DATA);
}

void chunkhead::send_gathered(HTTP_Invoker_T& invoker, std::initializer_list<Memory_Piece> pieces) {
    std::vector<iovec> buffers;
    buffers.reserve(pieces.size());
    for (const Memory_Piece& piece : pieces) {
        iovec& buffer = buffers.emplace_back();
        buffer.iov_base = const_cast<char*>(static_cast<const char*>(piece.data));  // only read
        buffer.iov_len = static_cast<u_long>(piece.length);
    }
    const int count = static_cast<int>(buffers.size());
    if (invoker.chunked()) {
        invoker.send_chunk(buffers.data(), count);
    } else {
        invoker.send_content(buffers.data(), count);
    }
}

}  // namespace dorvo
