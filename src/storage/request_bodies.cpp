#include "storage/request_bodies.h"

#include <utility>

#include "storage/answer_shape.h"

namespace dorvo {
namespace {

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

std::string timeOrUnknown(const std::string& time) {
    return time.empty() ? "unknown" : time;
}

constexpr uint32_t high(uint64_t value) {
    return static_cast<uint32_t>(value >> 32);
}
constexpr uint32_t low(uint64_t value) {
    return static_cast<uint32_t>(value);
}

Value attributesValue(const ItemAttributes& attributes) {
    return Object{{"dwFileAttributes", attributes.attributes},
                  {"nFileSizeHigh", attributes.sizeHigh},
                  {"nFileSizeLow", attributes.sizeLow},
                  {"ftCreationTimedwHighDateTime", attributes.creationHigh},
                  {"ftCreationTimedwLowDateTime", attributes.creationLow},
                  {"ftLastAccessTimedwHighDateTime", attributes.lastAccessHigh},
                  {"ftLastAccessTimedwLowDateTime", attributes.lastAccessLow},
                  {"ftLastWriteTimedwHighDateTime", attributes.lastWriteHigh},
                  {"ftLastWriteTimedwLowDateTime", attributes.lastWriteLow}};
}

}  // namespace

uint32_t totalBlocks(uint64_t packageSize, bool directory) {
    return static_cast<uint32_t>(packageSize / uploadBlockSize) + (directory ? 0 : 1);
}

Value startJobBody(const std::string& definitionId, const std::string& instanceId,
                   const SourceTotals& totals, const std::string& startTime) {
    return Object{{"jobdefinitionid", definitionId},
                  {"jobinstanceid", instanceId},
                  {"totaldirectories", totals.directories},
                  {"totalfiles", totals.files},
                  {"totalsize", totals.size},
                  {"starttime", timeOrUnknown(startTime)}};
}

Value uploadFileBody(const std::string& instanceId, const std::string& path,
                     const ItemAttributes& attributes, uint64_t packageSize) {
    return Object{{"attri", attributesValue(attributes)},
                  {"type", attributes.directory() ? "folder" : "file"},
                  {"jobinstanceid", instanceId},
                  {"sourcename", path},
                  {"totalsizeHigh", high(packageSize)},
                  {"totalsizeLow", low(packageSize)},
                  {"totalblock", totalBlocks(packageSize, attributes.directory())}};
}

Value submitErrorsBody(const std::string& instanceId, std::span<const FailedItem> errors) {
    Array list;
    list.reserve(errors.size());
    for (const FailedItem& error : errors) {
        list.emplace_back(
            Object{{"path", error.path}, {"code", error.code}, {"reason", error.reason}});
    }
    return Object{{"jobinstanceid", instanceId}, {"errors", std::move(list)}};
}

Value endJobBody(const std::string& instanceId, const std::string& endTime) {
    return Object{{"jobinstanceid", instanceId}, {"endtime", timeOrUnknown(endTime)}};
}

Value stopJobBody(const std::string& instanceId) {
    return Object{{"id", instanceId}};
}

Value incrementCheckBody(const std::string& definitionId, const std::string& instanceId,
                         bool compress, bool first, std::span<const IncrementItem> items) {
    Array source;
    source.reserve(items.size());
    for (const IncrementItem& item : items) {
        source.emplace_back(Object{{"path", item.path},
                                   {"mtimeHigh", high(item.lastWrite)},
                                   {"mtimeLow", low(item.lastWrite)}});
    }
    return Object{{"id", definitionId},
                  {"jobinstanceid", instanceId},
                  {"compress", compress},
                  {"first", first},
                  {"source", std::move(source)}};
}

bool readIncrementAnswer(const Value& answer, std::vector<std::string>& paths) {
    paths.clear();
    if (answer.type() != json_spirit::obj_type) {
        return false;
    }
    const auto source = answer.get_obj().find("source");
    if (source == answer.get_obj().end() || source->second.type() != json_spirit::array_type) {
        return false;
    }
    for (const Value& element : source->second.get_array()) {
        if (element.type() != json_spirit::obj_type) {
            return false;
        }
        const auto path = element.get_obj().find("path");
        if (path == element.get_obj().end() || path->second.type() != json_spirit::str_type) {
            return false;
        }
        paths.push_back(path->second.get_str());
    }
    return true;
}

std::optional<uint64_t> readHeldBlocks(const std::string& body) {
    std::optional<uint64_t> blocks;
    hasShape([&] {
        Value answer;
        json_spirit::read_or_throw(body, answer);
        blocks = answer.get_obj().at("blocks").get_uint64();
    });
    return blocks;
}

std::vector<std::string> readIncomplete(const std::string& body) {
    std::vector<std::string> paths;
    Value refusal;
    try {
        json_spirit::read_or_throw(body, refusal);
    } catch (const json_spirit::Error_position&) {
        return paths;
    }
    if (refusal.type() != json_spirit::obj_type) {
        return paths;
    }
    const auto named = refusal.get_obj().find("incomplete");
    if (named == refusal.get_obj().end() || named->second.type() != json_spirit::array_type) {
        return paths;
    }
    for (const Value& path : named->second.get_array()) {
        if (path.type() == json_spirit::str_type && !path.get_str().empty()) {
            paths.push_back(path.get_str());
        }
    }
    return paths;
}

std::string withoutTrailingBackslash(std::string path) {
    if (path.size() > 1 && path.back() == '\\') {
        path.pop_back();
    }
    return path;
}

}  // namespace dorvo
