#include "jobdef/definitionfields.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "json_spirit/member.h"
#include "widetext/widetext.h"

namespace dorvo::jobdef {
namespace {

using json_spirit::Object;
using json_spirit::Value;
using json_spirit::Value_type;

bool isDevicePath(std::wstring_view path) {
    return path.starts_with(L"\\\\?\\") || path.starts_with(L"\\\\.\\");
}

// Null when there is none of that type.
const Value* member(const Object& object, const std::string& key, Value_type type) {
    const Value& found = json_spirit::member(object, key.c_str());
    return found.type() == type ? &found : nullptr;
}

const Value& required(const Object& object, const std::string& key, Value_type type) {
    if (const Value* found = member(object, key, type)) {
        return *found;
    }
    throw std::runtime_error("\"" + key + "\" is missing or not " +
                             json_spirit::value_type_name(type));
}

// False when an element is no string.
bool strings(const json_spirit::Array& elements, std::vector<std::string>& texts) {
    for (const Value& element : elements) {
        if (element.type() != json_spirit::str_type) {
            return false;
        }
        texts.push_back(element.get_str());
    }
    return true;
}

bool parseTicks(const std::string& text, uint64_t& ticks) {
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, ticks);
    return error == std::errc() && stop == end;
}

}  // namespace

std::string pathToJson(const std::wstring& path) {
    std::string text = toUtf8(path);
    if (!isDevicePath(path)) {
        std::replace(text.begin(), text.end(), '\\', '/');
    }
    return text;
}

std::wstring pathFromJson(const std::string& text) {
    std::wstring path = toWide(text);
    if (!isDevicePath(path)) {
        std::replace(path.begin(), path.end(), L'/', L'\\');
    }
    return path;
}

std::string requiredString(const Object& object, const std::string& key) {
    return required(object, key, json_spirit::str_type).get_str();
}

int32_t requiredInt(const Object& object, const std::string& key) {
    return required(object, key, json_spirit::int_type).get_int();
}

std::vector<std::string> requiredStrings(const Object& object, const std::string& key) {
    std::vector<std::string> texts;
    if (!strings(required(object, key, json_spirit::array_type).get_array(), texts)) {
        throw std::runtime_error("\"" + key + "\" has an element that is not a string");
    }
    return texts;
}

std::string optionalString(const Object& object, const std::string& key) {
    const Value* found = member(object, key, json_spirit::str_type);
    return found == nullptr ? std::string() : found->get_str();
}

int32_t optionalInt(const Object& object, const std::string& key, int32_t fallback) {
    const Value* found = member(object, key, json_spirit::int_type);
    const bool fits =
        found != nullptr && !found->is_uint64() && std::in_range<int32_t>(found->get_int64());
    return fits ? found->get_int() : fallback;
}

bool optionalBool(const Object& object, const std::string& key, bool fallback) {
    const Value* found = member(object, key, json_spirit::bool_type);
    return found == nullptr ? fallback : found->get_bool();
}

std::vector<std::string> optionalStrings(const Object& object, const std::string& key) {
    std::vector<std::string> texts;
    const Value* found = member(object, key, json_spirit::array_type);
    if (found != nullptr && !strings(found->get_array(), texts)) {
        texts.clear();
    }
    return texts;
}

std::vector<std::wstring> pathsFromJson(const std::vector<std::string>& texts) {
    std::vector<std::wstring> paths(texts.size());
    std::transform(texts.begin(), texts.end(), paths.begin(), pathFromJson);
    return paths;
}

json_spirit::Array pathsToJson(const std::vector<std::wstring>& paths) {
    json_spirit::Array elements(paths.size());
    std::transform(paths.begin(), paths.end(), elements.begin(), pathToJson);
    return elements;
}

void scheduleToJson(const JobSchedule& schedule, Object& object) {
    object["kind"] = static_cast<int32_t>(schedule.kind);
    object["start"] = std::to_string(schedule.start);
    object["day"] = schedule.day;
    object["hour"] = schedule.hour;
    object["minute"] = schedule.minute;
    object["second"] = schedule.second;
}

JobSchedule scheduleFromJson(const Object& object, const std::string& key, bool& valid) {
    const Value* found = member(object, key, json_spirit::obj_type);
    if (found == nullptr) {
        valid = !object.contains(key);
        return {};
    }
    const Object& members = found->get_obj();
    constexpr int32_t none = -1;
    JobSchedule schedule;
    schedule.kind = static_cast<ScheduleKind>(optionalInt(members, "kind", none));
    schedule.day = optionalInt(members, "day", 0);
    schedule.hour = optionalInt(members, "hour", 0);
    schedule.minute = optionalInt(members, "minute", 0);
    schedule.second = optionalInt(members, "second", 0);
    const std::string start = optionalString(members, "start");
    valid = (start.empty() || parseTicks(start, schedule.start)) && schedule.isValid();
    return valid ? schedule : JobSchedule();
}

}  // namespace dorvo::jobdef
