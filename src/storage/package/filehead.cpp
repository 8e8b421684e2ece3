#include "storage/package/filehead.h"

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <string>

#include "base/last_error.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/text.h"
#include "base/uuid.h"
#include "http_util/http_invoker_t.h"
#include "http_util/message_t.h"
#include "storage/package/package_reader.h"

namespace dorvo {
namespace {

constexpr size_t head_size = sizeof(file_package_head);

FILETIME file_time(uint64_t ticks) {
    return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

}  // namespace

void received_file::forget() {
    static_cast<void>(file.release());
    *this = received_file{};
}

received_file& current_received_file() {
    static received_file current;
    return current;
}

filehead::filehead(uint8_t* package) {
    attach(package);
}

void filehead::attach(uint8_t* head) {
    head_ = head;
    address_.set(reinterpret_cast<chunk_address*>(head + offsetof(file_package_head, name)));
}

void filehead::init() {
    owned_head_ = std::make_shared<uint8_t[]>(head_size);
    attach(owned_head_.get());
    write_wire(head_, package_prefix{0, file_package_magic});
    createUUID();
}

void filehead::uninit() {
    name_.reset();
    owned_head_.reset();
    head_ = nullptr;
    address_ = {};
}

// The UUID stands over length and magic too, which send_package writes again: what stays of it are
// its last 8 bytes.
bool filehead::createUUID() {
    GUID id;
    if (createUuid(id) != 0) {
        return false;
    }
    write_wire(head_, id);
    return true;
}

bool filehead::set(uint32_t attributes, uint64_t size, uint64_t last_write, uint64_t last_access,
                   uint64_t creation, const uint8_t* name, uint16_t name_length) {
    auto head = read_wire<file_package_head>(head_);
    head.attributes = attributes;
    head.size = size;
    head.last_write = last_write;
    head.last_access = last_access;
    head.creation = creation;
    write_wire(head_, head);
    address_.set_address_head(head_size, name_length);
    name_.reset();
    if (name_length != 0) {
        name_ = std::make_shared<uint8_t[]>(name_length);
        std::copy_n(name, name_length, name_.get());
    }
    return true;
}

bool filehead::set(uint8_t* package) {
    owned_head_.reset();
    name_.reset();
    attach(package);
    return true;
}

uint32_t filehead::get_head_length() const {
    return head_size;
}

bool filehead::send_package(HTTP_Invoker_T& invoker) {
    const FunctionTrace trace("filehead::send_package", "filehead.cpp");
    const uint16_t length = address_.get_length();
    write_wire(head_, package_prefix{uint32_t{address_.get_offset()} + length, file_package_magic});
    // A package that was received has its name with it.
    uint8_t* name = name_.get();
    if (name == nullptr) {
        address_.get_content(head_, &name);
    }
    send_gathered(invoker, {{head_, head_size}, {name, length}});
    return true;
}

void filehead::clear_file_attr() {
    current_received_file().forget();
}

void filehead::modify_file_attr() const {
    const auto head = read_wire<file_package_head>(head_);
    received_file& current = current_received_file();
    current.attributes = head.attributes;
    current.creation = file_time(head.creation);
    current.last_access = file_time(head.last_access);
    current.last_write = file_time(head.last_write);
    current.size_high = static_cast<uint32_t>(head.size >> 32);
    current.size_low = static_cast<uint32_t>(head.size);
}

bool filehead::handle_head(uint8_t* package) {
    const FunctionTrace trace("filehead::handle_head", "filehead.cpp");
    package_fault fault = nullptr;
    const auto read = read_file_package({package, stated_length(package)}, fault);
    if (!read) {
        return refuse(fault);
    }
    set(package);
    clear_file_attr();
    const std::wstring path = longPath(toWide(read->name));
    if (read->head.attributes == FILE_ATTRIBUTE_DIRECTORY) {
        CreateDirectoryW(path.c_str(), nullptr);
        return true;
    }
    modify_file_attr();
    FileHandle& file = current_received_file().file;
    file.reset(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS,
                           read->head.attributes, nullptr));
    if (!file) {
        const LastErrorGuard keep;
        log(LogLevel::error, "Failed to open received file {%s}, error-code = %d, %m.\n",
            std::string(read->name), keep.error());
    }
    return true;
}

}  // namespace dorvo
