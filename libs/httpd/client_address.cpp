#include "httpd/client_address.h"

#include <algorithm>
#include <boost/asio/ip/address.hpp>
#include <boost/asio/ip/address_v6.hpp>

#include "httpd/http_text.h"

namespace dorvo {

namespace asio = boost::asio;

namespace {

// The parts between the separators; where quotes count, those that stand outside of them.
std::vector<std::string_view> split(std::string_view text, char separator, bool quotes) {
    std::vector<std::string_view> parts;
    size_t begin = 0;
    bool quoted = false;
    for (size_t i = 0; i < text.size(); ++i) {
        if (quoted && text[i] == '\\') {
            ++i;
        } else if (quotes && text[i] == '"') {
            quoted = !quoted;
        } else if (text[i] == separator && !quoted) {
            parts.push_back(trimmed(text.substr(begin, i - begin)));
            begin = i + 1;
        }
    }
    parts.push_back(trimmed(text.substr(begin)));
    return parts;
}

// Whether each quote is one around a whole value, and closed. Otherwise who wrote the beginning may
// have opened one for what the next hand adds to vanish in.
bool isQuotedWell(std::string_view text) {
    bool quoted = false;
    for (size_t i = 0; i < text.size(); ++i) {
        if (quoted && text[i] == '\\') {
            ++i;
        } else if (text[i] == '"') {
            const std::string_view next = trimmed(text.substr(i + 1));
            const bool inPlace = quoted ? next.empty() || next.front() == ',' || next.front() == ';'
                                        : i > 0 && text[i - 1] == '=';
            if (!inPlace) {
                return false;
            }
            quoted = !quoted;
        }
    }
    return !quoted;
}

// The "for" of an element of Forwarded; empty when it has none.
std::string_view forOf(std::string_view element) {
    for (const std::string_view pair : split(element, ';', true)) {
        if (pair.size() > 4 && equalNoCase(pair.substr(0, 4), "for=")) {
            std::string_view value = pair.substr(4);
            if (value.size() >= 2 && value.front() == '"' && value.back() == '"') {
                value = value.substr(1, value.size() - 2);
            }
            return value;
        }
    }
    return {};
}

// Back from the peer, as long as those who passed the request on are trusted.
std::string behind(const std::string& peer, const std::vector<std::string>& trusted,
                   const std::vector<std::string_view>& hops) {
    std::string client = peer;
    // NOLINTNEXTLINE(modernize-loop-convert): clang cannot read the reversed view of this library
    for (auto hop = hops.rbegin(); hop != hops.rend(); ++hop) {
        if (std::find(trusted.begin(), trusted.end(), client) == trusted.end()) {
            break;
        }
        const auto before = plainAddress(*hop);
        if (!before) {
            break;
        }
        client = *before;
    }
    return client;
}

}  // namespace

std::optional<std::string> plainAddress(std::string_view text) {
    std::string_view port;
    if (text.starts_with('[')) {
        const size_t end = text.find(']');
        if (end == std::string_view::npos) {
            return std::nullopt;
        }
        port = text.substr(end + 1);
        text = text.substr(1, end - 1);
    } else if (std::count(text.begin(), text.end(), ':') == 1) {
        port = text.substr(text.find(':'));
        text = text.substr(0, text.find(':'));
    }
    if (!port.empty() && (port.front() != ':' || !isToken(port.substr(1)))) {
        return std::nullopt;
    }
    boost::system::error_code error;
    const auto address = asio::ip::make_address(std::string(text), error);
    if (error) {
        return std::nullopt;
    }
    return plainAddress(address);
}

std::string plainAddress(const asio::ip::address& address) {
    if (address.is_v6() && address.to_v6().is_v4_mapped()) {
        return asio::ip::make_address_v4(asio::ip::v4_mapped, address.to_v6()).to_string();
    }
    return address.to_string();
}

std::string forwardedClient(const std::string& peer, const std::vector<std::string>& trusted,
                            std::string_view forwarded, std::string_view forwardedFor) {
    std::vector<std::string> found;
    if (!forwarded.empty()) {
        std::vector<std::string_view> hops;
        if (isQuotedWell(forwarded)) {
            hops = split(forwarded, ',', true);
            std::transform(hops.begin(), hops.end(), hops.begin(), forOf);
        }
        found.push_back(behind(peer, trusted, hops));
    }
    if (!forwardedFor.empty()) {
        found.push_back(behind(peer, trusted, split(forwardedFor, ',', false)));
    }
    const bool agreed = !found.empty() && found.front() == found.back();
    return agreed ? found.front() : peer;
}

std::string clientNetwork(const std::string& address) {
    boost::system::error_code error;
    // With a zone ("fe80::1%eth0") it is a neighbour, whose half says nothing about him.
    if (address.find(':') == std::string::npos || address.find('%') != std::string::npos) {
        return address;
    }
    const auto whole = boost::asio::ip::make_address_v6(address, error);
    if (error || whole.is_v4_mapped()) {
        return address;
    }
    auto bytes = whole.to_bytes();
    std::fill(bytes.begin() + 8, bytes.end(), uint8_t{0});
    return boost::asio::ip::address_v6(bytes).to_string();
}

}  // namespace dorvo
