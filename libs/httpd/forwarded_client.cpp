#include "httpd/forwarded_client.h"

#include <algorithm>
#include <boost/asio/ip/address.hpp>

#include "httpd/http_text.h"

namespace dorvo {

namespace asio = boost::asio;

namespace {

std::string_view trimmed(std::string_view text) {
    const size_t begin = text.find_first_not_of(" \t");
    if (begin == std::string_view::npos) {
        return {};
    }
    return text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

// The parts between the separators that stand outside of quotes.
std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> parts;
    size_t begin = 0;
    bool quoted = false;
    for (size_t i = 0; i < text.size(); ++i) {
        if (quoted && text[i] == '\\') {
            ++i;
        } else if (text[i] == '"') {
            quoted = !quoted;
        } else if (text[i] == separator && !quoted) {
            parts.push_back(trimmed(text.substr(begin, i - begin)));
            begin = i + 1;
        }
    }
    parts.push_back(trimmed(text.substr(begin)));
    return parts;
}

// The "for" of an element of Forwarded; empty when it has none.
std::string_view forOf(std::string_view element) {
    for (const std::string_view pair : split(element, ';')) {
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
    if (text.starts_with('[')) {
        text = text.substr(1, text.find(']') - 1);
    } else if (std::count(text.begin(), text.end(), ':') == 1) {
        text = text.substr(0, text.find(':'));
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
        std::vector<std::string_view> hops = split(forwarded, ',');
        std::transform(hops.begin(), hops.end(), hops.begin(), forOf);
        found.push_back(behind(peer, trusted, hops));
    }
    if (!forwardedFor.empty()) {
        found.push_back(behind(peer, trusted, split(forwardedFor, ',')));
    }
    const bool agreed = !found.empty() && found.front() == found.back();
    return agreed ? found.front() : peer;
}

}  // namespace dorvo
