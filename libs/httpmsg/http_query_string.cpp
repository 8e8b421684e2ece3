#include "httpmsg/http_query_string.h"

#include <algorithm>
#include <string_view>

#include "httpmsg/hex_digit.h"

namespace dorvo {
namespace {

bool is_unreserved(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '-' ||
           c == '.' || c == '_' || c == '~';
}

}  // namespace

void HTTP_Query_String::parse(const std::string& query) {
    pairs_.clear();
    size_t begin = 0;
    while (begin <= query.size()) {
        const size_t end = std::min(query.find('&', begin), query.size());
        const std::string pair = query.substr(begin, end - begin);
        begin = end + 1;
        if (pair.empty()) {
            continue;
        }
        const size_t equals = std::min(pair.find('='), pair.size());
        const std::string value = equals < pair.size() ? pair.substr(equals + 1) : std::string();
        add(decode(pair.substr(0, equals), true), decode(value, true));
    }
}

const char* HTTP_Query_String::get(const char* name) const {
    const auto found = std::ranges::find_if(
        pairs_, [&](const auto& pair) { return name != nullptr && pair.first == name; });
    return found == pairs_.end() ? nullptr : found->second.c_str();
}

std::string HTTP_Query_String::text() const {
    std::string text;
    for (const auto& [name, value] : pairs_) {
        text += (text.empty() ? "" : "&") + encode(name) + "=" + encode(value);
    }
    return text;
}

std::string HTTP_Query_String::decode(const std::string& text, bool plus_is_blank) {
    std::string decoded;
    decoded.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() && hex_digit(text[i + 1]) >= 0 &&
            hex_digit(text[i + 2]) >= 0) {
            decoded += static_cast<char>(hex_digit(text[i + 1]) * 16 + hex_digit(text[i + 2]));
            i += 2;
        } else {
            decoded += text[i] == '+' && plus_is_blank ? ' ' : text[i];
        }
    }
    return decoded;
}

std::string HTTP_Query_String::encode(const std::string& text) {
    static constexpr std::string_view digits = "0123456789ABCDEF";
    std::string encoded;
    for (const char c : text) {
        if (is_unreserved(c)) {
            encoded += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            encoded += {'%', digits[byte / 16], digits[byte % 16]};
        }
    }
    return encoded;
}

}  // namespace dorvo
