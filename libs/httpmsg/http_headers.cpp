#include "httpmsg/http_headers.h"

#include <algorithm>
#include <string_view>

namespace dorvo {
namespace {

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool is_token(const std::string& text) {
    return !text.empty() && std::ranges::all_of(text, [](char c) {
        return (c >= '0' && c <= '9') || (lower(c) >= 'a' && lower(c) <= 'z') ||
               (c != '\0' && std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos);
    });
}

bool is_slot(int type) {
    return type >= 0 && type < HTTP_HEAD_TYPES;
}

}  // namespace

bool is_http_head_value(const std::string& text) {
    return std::ranges::none_of(text, [](char c) { return c == '\r' || c == '\n' || c == '\0'; });
}

bool HTTP_Headers::Name_Less::operator()(const std::string& a, const std::string& b) const {
    return std::ranges::lexicographical_compare(a, b, {}, lower, lower);
}

int HTTP_Headers::put(int type, const char* value) {
    if (value != nullptr) {
        return put(type, std::string(value));
    }
    if (!is_slot(type)) {
        return -1;
    }
    slots_[static_cast<size_t>(type)].reset();
    return 0;
}

int HTTP_Headers::put(int type, const std::string& value) {
    if (!is_slot(type) || !is_http_head_value(value)) {
        return -1;
    }
    slots_[static_cast<size_t>(type)] = value;
    return 0;
}

int HTTP_Headers::put(const char* name, const char* value) {
    if (name == nullptr || !is_token(name)) {
        return -1;
    }
    if (value != nullptr) {
        return put(std::string(name), std::string(value));
    }
    if (const int type = http_head_type(name); type != -1) {
        return put(type, value);
    }
    others_.erase(name);
    return 0;
}

int HTTP_Headers::put(const std::string& name, const std::string& value) {
    if (!is_token(name) || !is_http_head_value(value)) {
        return -1;
    }
    if (const int type = http_head_type(name.c_str()); type != -1) {
        return put(type, value);
    }
    others_[name] = value;
    return 0;
}

const char* HTTP_Headers::get(int type) const {
    if (!is_slot(type)) {
        return nullptr;
    }
    const auto& slot = slots_[static_cast<size_t>(type)];
    return slot ? slot->c_str() : nullptr;
}

const char* HTTP_Headers::get(const char* name) const {
    if (name == nullptr) {
        return nullptr;
    }
    if (const int type = http_head_type(name); type != -1) {
        return get(type);
    }
    const auto found = others_.find(name);
    return found == others_.end() ? nullptr : found->second.c_str();
}

void HTTP_Headers::reset_i() {
    slots_.fill(std::nullopt);
}

void HTTP_Headers::reset() {
    reset_i();
    others_.clear();
}

}  // namespace dorvo
