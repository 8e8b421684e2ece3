// What all requests about backups share: ids, whose backup it is, errors, and attributes of files.
#pragma once

#include <boost/json/fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "catalog/instances.h"

namespace dorvo {

inline constexpr size_t maxIdBytes = 255;

// The id under that key: not empty, short and printable. It lives as long as the body.
std::string_view idMember(const boost::json::object& body, std::string_view key);

// The instance of the session's user, which is in use with that. ServiceError 404 where there is
// none, whether nobody has one of that name or another user has.
Instance ownInstance(Instances& instances, const Session& session, std::string_view name);

// The same, for a request that would make it else.
std::optional<Instance> findOwnInstance(Instances& instances, const Session& session,
                                        std::string_view name);

// Both throw ServiceError 409 otherwise; the first wants the second too.
void requireRunning(const Instance& instance);
void requireUndamaged(const Instance& instance);

// Throws the 409 that says which state the backup is in.
[[noreturn]] void refuseState(const Instance& instance);

// The "errors" of a request that reports failed files. A path that no file can have here is made
// into one, and an endless reason cut: the report is about it, and the others' must not be lost for
// it.
std::vector<FailedFile> errorsMember(const boost::json::object& body);

// A file's attribute data. Throws ServiceError 400 unless all nine numbers are there.
FileAttributes readAttributes(const boost::json::object& attri);
boost::json::object writeAttributes(const FileAttributes& attributes);

bool isFolder(const FileAttributes& attributes);
int64_t lastWriteTime(const FileAttributes& attributes);

// The word for a stored file's kind.
std::string_view typeText(FileKind kind);

}  // namespace dorvo
