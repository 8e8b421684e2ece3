// What all requests about backups share: ids, and whose backup it is.
#pragma once

#include <boost/json/fwd.hpp>
#include <string>
#include <string_view>

#include "catalog.h"

namespace dorvo {

inline constexpr size_t maxIdBytes = 255;

// The id under that key: not empty, short and printable. It lives as long as the body.
std::string_view idMember(const boost::json::object& body, std::string_view key);

// The instance, which must exist (else ServiceError 404) and be the session's user's (else 403).
Instance ownInstance(Catalog& catalog, const Session& session, std::string_view name);

// Throws the 409 that says which state the backup is in.
[[noreturn]] void refuseState(const Instance& instance);

// The "errors" of a request that reports failed files.
std::vector<FailedFile> errorsMember(const boost::json::object& body);

}  // namespace dorvo
