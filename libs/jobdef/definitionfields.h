// Reads and writes the members of a definition's JSON object.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "jobdef/jobschedule.h"
#include "json_spirit/value.h"

namespace dorvo::jobdef {

// What a definition says is none of this version's: a later one may know it.
struct UnknownKind : std::runtime_error {
    using runtime_error::runtime_error;
};

// A path in a file has forward slashes, except a device path (\\?\, \\.\), which stays as it is.
std::string pathToJson(const std::wstring& path);
std::wstring pathFromJson(const std::string& text);

// Throw std::runtime_error when the member is missing or of another type.
std::string requiredString(const json_spirit::Object& object, const std::string& key);
int32_t requiredInt(const json_spirit::Object& object, const std::string& key);
std::vector<std::string> requiredStrings(const json_spirit::Object& object, const std::string& key);

// The fallback when the member is missing or of another type.
std::string optionalString(const json_spirit::Object& object, const std::string& key);
int32_t optionalInt(const json_spirit::Object& object, const std::string& key, int32_t fallback);
bool optionalBool(const json_spirit::Object& object, const std::string& key, bool fallback);
std::vector<std::string> optionalStrings(const json_spirit::Object& object, const std::string& key);

std::vector<std::wstring> pathsFromJson(const std::vector<std::string>& texts);
json_spirit::Array pathsToJson(const std::vector<std::wstring>& paths);

// Puts the schedule's members into `object`, which keeps those it has besides.
void scheduleToJson(const JobSchedule& schedule, json_spirit::Object& object);
// A schedule that is missing or not valid is a manual one; `valid` is false for the latter.
JobSchedule scheduleFromJson(const json_spirit::Object& object, const std::string& key,
                             bool& valid);

}  // namespace dorvo::jobdef
