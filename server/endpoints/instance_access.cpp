#include "endpoints/instance_access.h"

#include <algorithm>
#include <boost/json.hpp>

#include "endpoints/json_body.h"
#include "support/disk_full.h"
#include "support/service_error.h"

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

}  // namespace

std::string_view idMember(const json::object& body, std::string_view key) {
    return checkId(textMember(body, key, maxIdBytes), key);
}

std::optional<Instance> findOwnInstance(Catalog& catalog, const Session& session,
                                        std::string_view name) {
    auto instance = catalog.findInstance(session.userId, name);
    const bool underWay = instance && (instance->state == InstanceState::pending ||
                                       instance->state == InstanceState::running);
    if (underWay && instance->idle > 0) {
        try {
            catalog.useInstance(instance->id);
        } catch (const DiskFull&) {
            // What frees the disk must go on; the next request says so again.
        }
    }
    return instance;
}

Instance ownInstance(Catalog& catalog, const Session& session, std::string_view name) {
    auto instance = findOwnInstance(catalog, session, name);
    if (!instance) {
        throw ServiceError(404, "no such backup");
    }
    return *std::move(instance);
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
