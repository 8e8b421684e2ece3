#include "endpoints/instance_access.h"

#include <algorithm>
#include <array>
#include <boost/json.hpp>

#include "common/files.h"
#include "common/service_error.h"
#include "endpoints/json_body.h"

namespace dorvo {

namespace json = boost::json;

namespace {

constexpr size_t maxReason = 4096;

// As much of a text as can be kept.
std::string kept(std::string_view text, size_t limit) {
    // Cut before a character, not within one.
    size_t length = std::min(text.size(), limit);
    while (length < text.size() && length > 0 &&
           (static_cast<unsigned char>(text[length]) & 0xC0U) == 0x80U) {
        --length;
    }
    std::string result(text.substr(0, length));
    std::replace(result.begin(), result.end(), '\0', '?');
    return result;
}

constexpr uint32_t directoryAttribute = 16;
constexpr std::array<std::string_view, 9> names = {"dwFileAttributes",
                                                   "nFileSizeHigh",
                                                   "nFileSizeLow",
                                                   "ftCreationTimedwHighDateTime",
                                                   "ftCreationTimedwLowDateTime",
                                                   "ftLastAccessTimedwHighDateTime",
                                                   "ftLastAccessTimedwLowDateTime",
                                                   "ftLastWriteTimedwHighDateTime",
                                                   "ftLastWriteTimedwLowDateTime"};
constexpr size_t lastWriteHigh = 7;
constexpr size_t lastWriteLow = 8;

}  // namespace

std::string_view idMember(const json::object& body, std::string_view key) {
    return checkId(textMember(body, key, maxIdBytes), key);
}

std::optional<Instance> findOwnInstance(Instances& instances, const Session& session,
                                        std::string_view name) {
    auto instance = instances.findInstance(session.userId, name);
    const bool underWay = instance && (instance->state == InstanceState::pending ||
                                       instance->state == InstanceState::running);
    if (underWay && instance->idle > 0) {
        try {
            instances.useInstance(instance->id);
        } catch (const DiskFull&) {
            // What frees the disk must go on; the next request says so again.
        }
    }
    return instance;
}

Instance ownInstance(Instances& instances, const Session& session, std::string_view name) {
    auto instance = findOwnInstance(instances, session, name);
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
        const std::string path = kept(anyTextMember(error, "path"), maxPathBytes);
        errors.push_back({path.empty() ? "?" : path, u32Member(error, "code"),
                          kept(anyTextMember(error, "reason"), maxReason)});
    }
    return errors;
}

FileAttributes readAttributes(const json::object& attri) {
    FileAttributes attributes{};
    for (size_t i = 0; i < names.size(); ++i) {
        attributes[i] = u32Member(attri, names[i]);
    }
    return attributes;
}

json::object writeAttributes(const FileAttributes& attributes) {
    json::object attri;
    attri.reserve(names.size());
    for (size_t i = 0; i < names.size(); ++i) {
        attri.emplace(names[i], attributes[i]);
    }
    return attri;
}

bool isFolder(const FileAttributes& attributes) {
    return (attributes[0] & directoryAttribute) != 0;
}

int64_t lastWriteTime(const FileAttributes& attributes) {
    return static_cast<int64_t>(joinHalves(attributes[lastWriteHigh], attributes[lastWriteLow]));
}

std::string_view typeText(FileKind kind) {
    return kind == FileKind::folder ? "folder" : "file";
}

}  // namespace dorvo
