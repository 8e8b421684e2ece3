// Who asks: by his address, or by what a proxy says when it passes the request on, and whose
// address it is as far as limits care.
//
// A proxy says in "Forwarded" or "X-Forwarded-For" whom it has the request from. Anybody can write
// these fields; only what trusted proxies have added counts, and that is what stands last.
#pragma once

#include <boost/asio/ip/address.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace dorvo {

// The address as it is always written, without brackets and port; an IPv4 one that is mapped into
// IPv6 as itself. Nothing for what is no address.
std::optional<std::string> plainAddress(std::string_view text);
std::string plainAddress(const boost::asio::ip::address& address);

// The client behind the peer. The trusted are plain addresses; `forwarded` and `forwardedFor` are
// the values of all fields of that name, joined with commas in their order, empty when there are
// none. From the last hop backwards the first that is not trusted; where a hop does not say who was
// before it, or the two fields do not agree, that hop's own address; the peer's where the quotes of
// `forwarded` are not right.
std::string forwardedClient(const std::string& peer, const std::vector<std::string>& trusted,
                            std::string_view forwarded, std::string_view forwardedFor);

// The address itself; of an IPv6 one the first half, since whoever has one has all of that half.
std::string clientNetwork(const std::string& address);

}  // namespace dorvo
