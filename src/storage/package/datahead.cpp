#include "storage/package/datahead.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "base/last_error.h"
#include "base/log.h"
#include "http_util/http_invoker_t.h"
#include "http_util/message_t.h"
#include "storage/package/filehead.h"
#include "storage/package/package_cipher.h"
#include "storage/package/package_reader.h"

namespace dorvo {
namespace {

constexpr size_t head_size = sizeof(data_package_head);
constexpr uint32_t cipher_block = 16;
constexpr size_t first_capacity = size_t{64} * 1024 + cipher_block;
constexpr uint64_t longest_content = INT32_MAX - cipher_block;  // processed lengths are signed
constexpr unsigned check_algo_shift = 1;
constexpr uint16_t last_compression = 4;
constexpr uint16_t last_encryption = 3;
constexpr uint32_t last_check_algo = 2;

struct package_key {
    std::array<uint8_t, 36> bytes{};  // ends in a zero
    uint32_t length = 0;

    std::span<const uint8_t> span() const {
        return {bytes.data(), std::min<size_t>(length, bytes.size())};
    }
};
package_key module_key;  // for one thread at a time

// Changes one head through a copy.
template <class Change>
void change_head(uint8_t* bytes, const Change& change) {
    auto head = read_wire<data_package_head>(bytes);
    change(head);
    write_wire(bytes, head);
}

package_iv vector_of(std::span<const uint8_t> extra) {
    package_iv iv{};
    std::copy(extra.begin(), extra.end(), iv.begin());
    return iv;
}

}  // namespace

datahead::datahead() : extra_(std::make_shared<uint8_t[]>(package_extra_max)) {
    make_room(first_capacity);
}

datahead::datahead(uint8_t* buffer) : datahead() {
    set(buffer);
}

void datahead::attach(uint8_t* head) {
    head_ = head;
    address_.set(reinterpret_cast<chunk_address*>(head + offsetof(data_package_head, extra)));
}

void datahead::make_room(size_t capacity) {
    work_ = std::make_shared<uint8_t[]>(capacity);
    capacity_ = capacity;
}

void datahead::init() {
    owned_head_ = std::make_shared<uint8_t[]>(head_size);
    attach(owned_head_.get());
    write_wire(head_, package_prefix{0, data_package_magic});
    raw_length_ = 0;
}

void datahead::uninit() {
    owned_head_.reset();
    head_ = nullptr;
    address_ = {};
}

bool datahead::set(uint8_t* buffer) {
    owned_head_.reset();
    attach(buffer);
    write_wire(head_, package_prefix{0, 0});
    address_.set_address_head(0, 0);
    return true;
}

void datahead::reset() {
    change_head(head_, [](data_package_head& head) {
        head.flags = 0;
        head.content_length = 0;
        head.check = 0;
        head.processed_check = 0;
        std::fill(std::begin(head.reserved), std::end(head.reserved), uint8_t{0});
    });
    raw_length_ = 0;
}

void datahead::set_data_end() {
    change_head(head_, [](data_package_head& head) { head.flags |= end_of_data_flag; });
}

bool datahead::is_end_of_data() const {
    return (read_wire<data_package_head>(head_).flags & end_of_data_flag) != 0;
}

void datahead::set_data_length(uint32_t length) {
    change_head(head_, [=](data_package_head& head) { head.content_length = length; });
}

void datahead::set_data_check(uint32_t check) {
    change_head(head_, [=](data_package_head& head) { head.check = check; });
}

void datahead::set_data_processed_check(uint32_t check) {
    change_head(head_, [=](data_package_head& head) { head.processed_check = check; });
}

bool datahead::set_data_check_algo(uint32_t algo) {
    if (algo > last_check_algo) {
        return false;
    }
    change_head(head_, [=](data_package_head& head) { head.flags |= algo << check_algo_shift; });
    return true;
}

bool datahead::set_compress(uint16_t algo, uint16_t level) {
    if (algo > last_compression) {
        return false;
    }
    change_head(head_, [=](data_package_head& head) {
        head.compression = algo;
        head.compression_level = algo == 0 ? uint16_t{0} : level;
    });
    return true;
}

bool datahead::set_encrypt(uint16_t algo, uint16_t extra_length, const uint8_t* extra) {
    if (algo > last_encryption) {
        return false;
    }
    if (algo != 0 && extra_length > package_extra_max) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    change_head(head_, [=](data_package_head& head) { head.encryption = algo; });
    const uint16_t length = algo == 0 ? uint16_t{0} : extra_length;
    address_.set_address_head(head_size, length);
    if (length != 0) {
        std::copy_n(extra, length, extra_.get());
    }
    return true;
}

std::span<const uint8_t> datahead::extra() const {
    return {extra_.get(), std::min<size_t>(address_.get_length(), package_extra_max)};
}

uint32_t datahead::get_aes_encode_length(uint32_t n) {
    return (n / cipher_block + 1) * cipher_block;
}

bool datahead::set_data_content(const uint8_t* data, uint64_t length) {
    if (length > longest_content) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    const uint32_t padded = get_aes_encode_length(static_cast<uint32_t>(length));
    if (capacity_ < padded) {
        make_room(padded);
    }
    std::copy_n(data, length, work_.get());
    raw_length_ = length;
    return true;
}

uint32_t datahead::get_head_length() const {
    return head_size;
}

void datahead::set_key(const uint8_t* key, uint32_t key_length) {
    const auto* const text = reinterpret_cast<const char*>(key);
    const size_t length = strnlen(text, module_key.bytes.size() - 1);
    std::copy_n(key, length, module_key.bytes.begin());
    module_key.bytes[length] = 0;
    module_key.length = key_length;
}

bool datahead::encode_data() {
    if (head_ == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    const auto head = read_wire<data_package_head>(head_);
    if (head.encryption == 0) {
        return true;
    }
    const package_iv iv = vector_of(extra());
    const std::span<const uint8_t> content(work_.get(), static_cast<size_t>(raw_length_));
    const std::span<uint8_t> room(work_.get(), static_cast<size_t>(capacity_));
    int32_t length = 0;
    if (head.compression == zlib_compression) {
        length = compress_encrypt_content(module_key.span(), iv, content, room);
        if (length <= 0) {
            set_compress(0, 0);
        }
    }
    if (length <= 0) {
        length = encrypt_content(module_key.span(), iv, content, room);
    }
    if (length <= 0) {
        log(LogLevel::error, "Failed to encrypt a piece of {%Q} bytes, it goes out as it is.\n",
            raw_length_);
        length = static_cast<int32_t>(raw_length_);
    }
    processed_length_ = length;
    return true;
}

bool datahead::send_package(HTTP_Invoker_T& invoker) {
    const FunctionTrace trace("datahead::send_package", "datahead.cpp");
    if (!encode_data()) {
        return false;
    }
    const uint32_t tail = uint32_t{address_.get_offset()} + address_.get_length();
    const size_t processed = static_cast<size_t>(std::max(processed_length_, 0));
    write_wire(head_, package_prefix{tail + static_cast<uint32_t>(processed), data_package_magic});
    send_gathered(invoker,
                  {{head_, head_size}, {extra_.get(), extra().size()}, {work_.get(), processed}});
    return true;
}

bool datahead::decode_data(const data_package& package) {
    if (package.head.encryption == 0) {
        return true;
    }
    const package_iv iv = vector_of(package.extra);
    if (package.head.compression == zlib_compression) {
        processed_length_ = decrypt_decompress_content(
            module_key.span(), iv, package.content, {work_.get(), static_cast<size_t>(capacity_)});
    } else {
        // What decrypts is shorter than what was encrypted, whatever the head says.
        const size_t limit = std::min<size_t>(package.head.content_length, package.content.size());
        if (capacity_ < limit) {
            make_room(limit);
        }
        processed_length_ =
            decrypt_content(module_key.span(), iv, package.content, {work_.get(), limit});
    }
    if (processed_length_ <= 0) {
        return logFailed(ERROR_INVALID_DATA,
                         "Failed to decode a data package {%u bytes}, error-code = %d.\n",
                         static_cast<unsigned>(package.content.size()), ERROR_INVALID_DATA);
    }
    return true;
}

bool datahead::handle_head(uint8_t* package) {
    const FunctionTrace trace("datahead::handle_head", "datahead.cpp");
    package_fault fault = nullptr;
    const auto read = read_data_package({package, stated_length(package)}, fault);
    if (!read) {
        return refuse(fault);
    }
    owned_head_.reset();
    attach(package);
    if (!decode_data(*read)) {
        return false;
    }
    received_file& current = current_received_file();
    DWORD written = 0;
    WriteFile(current.file.get(), work_.get(), static_cast<DWORD>(std::max(processed_length_, 0)),
              &written, nullptr);
    if (!is_end_of_data()) {
        return true;
    }
    if (SetFileTime(current.file.get(), &current.creation, &current.last_access,
                    &current.last_write) == 0) {
        return logFailed("Failed to set the times of a received file, error-code = %d, %m.\n",
                         GetLastError());
    }
    current.file.reset();
    return true;
}

}  // namespace dorvo
