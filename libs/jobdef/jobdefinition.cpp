#include "jobdef/jobdefinition.h"

#include <stdexcept>
#include <utility>

#include "jobdef/definitionfields.h"
#include "json_spirit/writer.h"
#include "widetext/widetext.h"

namespace dorvo {
namespace {

constexpr const char* webStorage = "web";
constexpr const char* localStorage = "local";

}  // namespace

JobDefinition::JobDefinition(int32_t type, std::string id, std::wstring name, std::string user)
    : type_(type), id_(std::move(id)), name_(std::move(name)), user_(std::move(user)) {}

JobDefinition::JobDefinition(const json_spirit::Object& members)
    : type_(jobdef::requiredInt(members, "type")),
      id_(jobdef::requiredString(members, "id")),
      name_(toWide(jobdef::requiredString(members, "name"))),
      user_(jobdef::requiredString(members, "user")),
      read_(members) {
    const std::string storage = jobdef::requiredString(members, "storage");
    if (id_.empty()) {
        throw std::runtime_error("\"id\" is empty");
    }
    if (storage == localStorage) {
        storage_ = StorageKind::local;
        location_ = jobdef::pathFromJson(jobdef::requiredString(members, "location"));
    } else if (storage != webStorage) {
        throw jobdef::UnknownKind("\"storage\" is neither \"web\" nor \"local\"");
    }
}

JobDefinition::JobDefinition(const JobDefinition&) = default;
JobDefinition::~JobDefinition() = default;

void JobDefinition::useWebStorage() {
    storage_ = StorageKind::web;
    location_.clear();
}

void JobDefinition::useLocalStorage(std::wstring location) {
    storage_ = StorageKind::local;
    location_ = std::move(location);
}

void JobDefinition::describe(json_spirit::Object& members) const {
    members = read_;
    members["type"] = type_;
    members["id"] = id_;
    members["name"] = toUtf8(name_);
    members["user"] = user_;
    members["storage"] = storage_ == StorageKind::local ? localStorage : webStorage;
    members["location"] = jobdef::pathToJson(location_);
}

std::string JobDefinition::text() const {
    json_spirit::Object members;
    describe(members);
    return json_spirit::write_formatted(json_spirit::Value(std::move(members)));
}

}  // namespace dorvo
