#include "storage/web/web_bodies.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

namespace dorvo {
namespace {

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

constexpr size_t md5Digits = 32;

constexpr uint32_t high(uint64_t value) {
    return static_cast<uint32_t>(value >> 32);
}
constexpr uint32_t low(uint64_t value) {
    return static_cast<uint32_t>(value);
}

std::string timeOrUnknown(const std::string& time) {
    return time.empty() ? "unknown" : time;
}

// The names under which the nine numbers of an item travel.
struct AttributeMember {
    const char* name;
    uint32_t ItemAttributes::*number;
};
constexpr std::array<AttributeMember, 9> attributeMembers = {{
    {"dwFileAttributes", &ItemAttributes::attributes},
    {"nFileSizeHigh", &ItemAttributes::sizeHigh},
    {"nFileSizeLow", &ItemAttributes::sizeLow},
    {"ftCreationTimedwHighDateTime", &ItemAttributes::creationHigh},
    {"ftCreationTimedwLowDateTime", &ItemAttributes::creationLow},
    {"ftLastAccessTimedwHighDateTime", &ItemAttributes::lastAccessHigh},
    {"ftLastAccessTimedwLowDateTime", &ItemAttributes::lastAccessLow},
    {"ftLastWriteTimedwHighDateTime", &ItemAttributes::lastWriteHigh},
    {"ftLastWriteTimedwLowDateTime", &ItemAttributes::lastWriteLow},
}};

// False when `read` meets what it does not want: a text that is no JSON, a member that is missing,
// out of range or of another type.
template <class Read>
bool hasShape(Read read) {
    try {
        read();
        return true;
    } catch (const json_spirit::Error_position&) {
        return false;
    } catch (const std::logic_error&) {
        return false;
    } catch (const std::runtime_error&) {
        return false;
    }
}

// These throw when the member is missing, of another type or out of range.
const std::string& text(const Object& object, const char* name) {
    return object.at(name).get_str();
}
uint64_t number(const Object& object, const char* name) {
    return object.at(name).get_uint64();
}
uint32_t half(const Object& object, const char* name) {
    const uint64_t value = number(object, name);
    if (!std::in_range<uint32_t>(value)) {
        throw std::out_of_range(name);
    }
    return static_cast<uint32_t>(value);
}

// The nine numbers, which have to agree with the item's kind.
ItemAttributes attributesOf(const Object& object) {
    const Object& attri = object.at("attri").get_obj();
    ItemAttributes read;
    for (const AttributeMember& member : attributeMembers) {
        read.*member.number = half(attri, member.name);
    }
    if (text(object, "type") != (read.directory() ? "folder" : "file")) {
        throw std::runtime_error("type");
    }
    return read;
}

StoredInstance instanceOf(const Object& entry) {
    return {.machine = text(entry, "machine"),
            .jobDefinitionId = text(entry, "jobdefinitionid"),
            .jobInstanceId = text(entry, "jobinstanceid"),
            .startTime = text(entry, "starttime"),
            .endTime = text(entry, "endtime"),
            .state = text(entry, "state"),
            .totalFiles = number(entry, "totalfiles"),
            .totalDirectories = number(entry, "totaldirectories"),
            .totalSize = number(entry, "totalsize"),
            .errors = number(entry, "errors"),
            .user = {}};
}

StoredPage pageOf(const Object& answer) {
    StoredPage page;
    for (const Value& entry : answer.at("source").get_array()) {
        const Object& item = entry.get_obj();
        page.items.push_back({text(item, "path"), attributesOf(item)});
    }
    page.next = text(answer, "next");
    if (answer.count("missing") != 0) {
        page.missing = number(answer, "missing");
    }
    return page;
}

Object placeOf(const StoredPath& path) {
    return {{"machine", path.machine},
            {"jobinstanceid", path.jobInstanceId},
            {"path", path.folder},
            {"filename", path.name}};
}

constexpr char fieldHead[] = "Content-Disposition: form-data; name=\"";

std::string delimiter(const BlockForm& form) {
    return "--" + form.boundary + "\r\n";
}

std::string field(const BlockForm& form, const char* name, const std::string& value) {
    return delimiter(form) + fieldHead + name + "\"\r\n\r\n" + value + "\r\n";
}

}  // namespace

Value loginBody(const std::string& user, const std::string& password, const std::string& machine) {
    return Object{{"user", user}, {"password", password}, {"machine", machine}};
}

Value listInstancesBody(const std::string& machine, const std::string& definitionId,
                        const std::string& after, int limit) {
    return Object{{"machine", machine},
                  {"jobdefinitionid", definitionId},
                  {"after", after},
                  {"limit", limit}};
}

bool readInstances(const Value& answer, std::vector<StoredInstance>& instances, std::string& next) {
    return hasShape([&] {
        const Object& members = answer.get_obj();
        std::vector<StoredInstance> read;
        for (const Value& entry : members.at("instances").get_array()) {
            read.push_back(instanceOf(entry.get_obj()));
        }
        next = members.count("next") == 0 ? std::string() : text(members, "next");
        instances = std::move(read);
    });
}

bool readKeyMd5(const Value& answer, std::string& md5) {
    return hasShape([&] {
        const std::string& found = text(answer.get_obj(), "md5");
        const bool digits = found.find_first_not_of("0123456789abcdef") == std::string::npos;
        if (!found.empty() && (found.size() != md5Digits || !digits)) {
            throw std::runtime_error("md5");
        }
        md5 = found;
    });
}

uint32_t totalBlocks(uint64_t packageSize, bool directory) {
    return static_cast<uint32_t>(packageSize / uploadBlockSize) + (directory ? 0 : 1);
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
    Object attri;
    for (const AttributeMember& member : attributeMembers) {
        attri[member.name] = attributes.*member.number;
    }
    return Object{{"attri", std::move(attri)},
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

std::string blockFormPrefix(const BlockForm& form) {
    return field(form, "md5", form.md5) + field(form, "jobinstanceid", form.instanceId) +
           field(form, "sourcename", form.path) + delimiter(form) + fieldHead +
           "file\"; filename=\"" + std::to_string(form.number) +
           ".jpg\"\r\n"
           "Content-Type: image/pjpeg\r\nContent-Transfer-Encoding: binary\r\n\r\n";
}

std::string blockFormSuffix(const BlockForm& form) {
    return "\r\n" + delimiter(form) + fieldHead + "submit\"\r\n\r\nSubmit\r\n--" + form.boundary +
           "--\r\n";
}

std::string blockFormContentType(const BlockForm& form) {
    return "multipart/form-data; boundary=" + form.boundary;
}

bool readIncrementAnswer(const Value& answer, std::vector<std::string>& paths) {
    paths.clear();
    return hasShape([&] {
        std::vector<std::string> named;
        for (const Value& element : answer.get_obj().at("source").get_array()) {
            named.push_back(text(element.get_obj(), "path"));
        }
        paths = std::move(named);
    });
}

std::optional<uint64_t> readHeldBlocks(const std::string& body) {
    std::optional<uint64_t> blocks;
    hasShape([&] {
        Value answer;
        json_spirit::read_or_throw(body, answer);
        blocks = number(answer.get_obj(), "blocks");
    });
    return blocks;
}

std::string readRefusal(const std::string& body) {
    constexpr size_t longest = 500;
    std::string why;
    hasShape([&] {
        Value refusal;
        json_spirit::read_or_throw(body, refusal);
        why = text(refusal.get_obj(), "error");
    });
    if (size_t end = longest; why.size() > end) {
        while ((static_cast<unsigned char>(why[end]) & 0xC0U) == 0x80U) {
            --end;  // not within a character
        }
        why.resize(end);
    }
    std::replace_if(
        why.begin(), why.end(), [](char c) { return static_cast<unsigned char>(c) < ' '; }, ' ');
    return why;
}

std::vector<std::string> readIncomplete(const std::string& body) {
    std::vector<std::string> paths;
    hasShape([&] {
        Value refusal;
        json_spirit::read_or_throw(body, refusal);
        for (const Value& path : refusal.get_obj().at("incomplete").get_array()) {
            if (path.type() == json_spirit::str_type && !path.get_str().empty()) {
                paths.push_back(path.get_str());
            }
        }
    });
    return paths;
}

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

Value listFilesBody(const std::string& machine, const std::string& instanceId,
                    const std::string& path, const std::string& after, unsigned limit) {
    return Object{{"machine", machine},
                  {"jobinstanceid", instanceId},
                  {"path", path},
                  {"after", after},
                  {"limit", limit}};
}

Value fileInfoBody(const StoredPath& path) {
    return placeOf(path);
}

Value downloadBody(const StoredPath& path, uint64_t index) {
    Object body = placeOf(path);
    body["blockindex"] = std::to_string(index);
    return body;
}

bool readRestoreTicket(const Value& answer, RestoreTicket& ticket) {
    return hasShape([&] {
        const Object& members = answer.get_obj();
        RestoreTicket found{text(members, "jobinstanceid"), number(members, "totalfiles"),
                            number(members, "totaldirectories"), number(members, "totalsize")};
        if (found.jobInstanceId.empty()) {
            throw std::runtime_error("jobinstanceid");
        }
        ticket = std::move(found);
    });
}

bool readStoredItem(const Value& answer, StoredItem& item) {
    return hasShape([&] {
        const Object& members = answer.get_obj();
        item = {attributesOf(members),
                uint64_t{half(members, "totalsizeHigh")} << 32 | half(members, "totalsizeLow"),
                half(members, "totalblock"), members.at("compress").get_bool()};
    });
}

bool readStoredPage(const Value& answer, const std::string& after, unsigned limit,
                    StoredPage& page) {
    return hasShape([&] {
        StoredPage found = pageOf(answer.get_obj());
        if (found.items.size() > limit || (!found.next.empty() && found.next <= after)) {
            throw std::runtime_error("next");
        }
        page = std::move(found);
    });
}

}  // namespace dorvo
