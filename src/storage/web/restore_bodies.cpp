#include "storage/web/restore_bodies.h"

#include <stdexcept>
#include <utility>

#include "storage/answer_shape.h"

namespace dorvo {
namespace {

using json_spirit::Object;
using json_spirit::Value;

// All of these throw when the member is missing, of another type or out of range.
const Value& member(const Object& object, const char* name) {
    return object.at(name);
}
const std::string& text(const Object& object, const char* name) {
    return member(object, name).get_str();
}
uint64_t number(const Object& object, const char* name) {
    return member(object, name).get_uint64();
}
uint32_t half(const Object& object, const char* name) {
    const uint64_t value = number(object, name);
    if (!std::in_range<uint32_t>(value)) {
        throw std::out_of_range(name);
    }
    return static_cast<uint32_t>(value);
}

// The nine numbers, which have to agree with the item's kind.
ItemAttributes attributes(const Object& object) {
    const Object& attri = member(object, "attri").get_obj();
    const ItemAttributes read{half(attri, "dwFileAttributes"),
                              half(attri, "nFileSizeHigh"),
                              half(attri, "nFileSizeLow"),
                              half(attri, "ftCreationTimedwHighDateTime"),
                              half(attri, "ftCreationTimedwLowDateTime"),
                              half(attri, "ftLastAccessTimedwHighDateTime"),
                              half(attri, "ftLastAccessTimedwLowDateTime"),
                              half(attri, "ftLastWriteTimedwHighDateTime"),
                              half(attri, "ftLastWriteTimedwLowDateTime")};
    if (text(object, "type") != (read.directory() ? "folder" : "file")) {
        throw std::runtime_error("type");
    }
    return read;
}

RestoreTicket ticketOf(const Object& answer) {
    return {text(answer, "jobinstanceid"), number(answer, "totalfiles"),
            number(answer, "totaldirectories"), number(answer, "totalsize")};
}

StoredItem itemOf(const Object& answer) {
    return {attributes(answer),
            uint64_t{half(answer, "totalsizeHigh")} << 32 | half(answer, "totalsizeLow"),
            half(answer, "totalblock"), member(answer, "compress").get_bool()};
}

StoredPage pageOf(const Object& answer) {
    StoredPage page;
    for (const Value& entry : member(answer, "source").get_array()) {
        const Object& item = entry.get_obj();
        page.items.push_back({text(item, "path"), attributes(item)});
    }
    page.next = text(answer, "next");
    if (answer.count("missing") != 0) {
        page.missing = number(answer, "missing");
    }
    return page;
}

// False, with `to` unchanged, when the answer is not of the shape that `readWhole` wants.
template <class Read, class To>
bool read(const Value& answer, Read readWhole, To& to) {
    return hasShape([&] { to = readWhole(answer.get_obj()); });
}

Object placeOf(const StoredPath& path) {
    return {{"machine", path.machine},
            {"jobinstanceid", path.jobInstanceId},
            {"path", path.folder},
            {"filename", path.name}};
}

}  // namespace

StoredPath storedPath(const std::string& machine, const std::string& jobInstanceId,
                      const std::string& path) {
    const std::string whole = withoutTrailingBackslash(path);
    const size_t split = whole.rfind('\\');
    return split == std::string::npos ? StoredPath{machine, jobInstanceId, {}, whole}
                                      : StoredPath{machine, jobInstanceId, whole.substr(0, split),
                                                   whole.substr(split + 1)};
}

Value startRestoreJobBody(const std::string& definitionId, const std::string& instanceId) {
    return Object{{"jobdefinitionid", definitionId}, {"jobinstanceid", instanceId}};
}

Value fileInfoBody(const StoredPath& path) {
    return placeOf(path);
}

Value downloadBody(const StoredPath& path, uint64_t index) {
    Object body = placeOf(path);
    body["blockindex"] = std::to_string(index);
    return body;
}

Value listFilesBody(const std::string& machine, const std::string& instanceId,
                    const std::string& path, const std::string& after, unsigned limit) {
    return Object{{"machine", machine},
                  {"jobinstanceid", instanceId},
                  {"path", path},
                  {"after", after},
                  {"limit", limit}};
}

bool readRestoreTicket(const Value& answer, RestoreTicket& ticket) {
    RestoreTicket found;
    if (!read(answer, ticketOf, found) || found.jobInstanceId.empty()) {
        return false;
    }
    ticket = std::move(found);
    return true;
}

bool readStoredItem(const Value& answer, StoredItem& item) {
    return read(answer, itemOf, item);
}

bool readStoredPage(const Value& answer, const std::string& after, unsigned limit,
                    StoredPage& page) {
    StoredPage found;
    if (!read(answer, pageOf, found) || found.items.size() > limit ||
        (!found.next.empty() && found.next <= after)) {
        return false;
    }
    page = std::move(found);
    return true;
}

}  // namespace dorvo
