#include "instance_access.h"

#include <algorithm>
#include <boost/json.hpp>

#include "disk_full.h"
#include "json_body.h"
#include "service_error.h"

namespace dorvo {

namespace json = boost::json;

namespace {

constexpr size_t maxReason = 4096;

std::string reportedPath(std::string_view path) {
    if (isPath(path)) {
        return std::string(path);
    }
    // Cut before a character, not within one.
    size_t length = std::min(path.size(), maxPathBytes);
    while (length < path.size() && length > 0 &&
           (static_cast<unsigned char>(path[length]) & 0xC0U) == 0x80U) {
        --length;
    }
    std::string usable(path.substr(0, length));
    std::replace(usable.begin(), usable.end(), '\0', '?');
    return usable.empty() ? "?" : usable;
}

// The user's instance, which is in use with that, or the refusal.
Instance usedInstance(Catalog& catalog, const Session& session, std::string_view name,
                      const ServiceError& refusal) {
    auto instance = catalog.findInstance(name);
    if (!instance || instance->userId != session.userId) {
        throw refusal;
    }
    const bool underWay =
        instance->state == InstanceState::pending || instance->state == InstanceState::running;
    if (underWay && instance->idle > 0) {
        try {
            catalog.useInstance(instance->id);
        } catch (const DiskFull&) {
            // What frees the disk must go on; the next request says so again.
        }
    }
    return *std::move(instance);
}

}  // namespace

std::string_view idMember(const json::object& body, std::string_view key) {
    return checkId(textMember(body, key, maxIdBytes), key);
}

Instance ownInstance(Catalog& catalog, const Session& session, std::string_view name) {
    return usedInstance(catalog, session, name, ServiceError(404, "no such backup"));
}

Instance namedInstance(Catalog& catalog, const Session& session, std::string_view name) {
    return usedInstance(catalog, session, name, ServiceError(403, "another user's backup"));
}

void requireRunning(const Instance& instance) {
    if (instance.state != InstanceState::running) {
        refuseState(instance);
    }
    requireUndamaged(instance);
}

void requireUndamaged(const Instance& instance) {
    if (instance.damaged) {
        throw ServiceError(409, "the backup may have lost data at the server");
    }
}

void refuseState(const Instance& instance) {
    switch (instance.state) {
        case InstanceState::pending: throw ServiceError(409, "the backup has not been started");
        case InstanceState::running: throw ServiceError(409, "the backup is running");
        case InstanceState::completed: throw ServiceError(409, "the backup is completed");
        case InstanceState::cancelled: break;
    }
    throw ServiceError(409, "the backup is cancelled");
}

std::vector<FailedFile> errorsMember(const json::object& body) {
    std::vector<FailedFile> errors;
    for (const json::value& element : arrayMember(body, "errors")) {
        const json::object& error = objectElement(element, "errors");
        errors.push_back({reportedPath(anyTextMember(error, "path")), u32Member(error, "code"),
                          std::string(textMember(error, "reason", maxReason))});
    }
    return errors;
}

}  // namespace dorvo
