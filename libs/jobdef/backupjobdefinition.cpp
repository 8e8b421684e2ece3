#include "jobdef/backupjobdefinition.h"

#include <algorithm>
#include <utility>

#include "jobdef/definitionfields.h"
#include "widetext/widetext.h"

namespace dorvo {

BackupJobDefinition::BackupJobDefinition(std::string id, std::wstring name, std::string user)
    : JobDefinition(backupType, std::move(id), std::move(name), std::move(user)) {}

BackupJobDefinition::BackupJobDefinition(const json_spirit::Object& members)
    : JobDefinition(members),
      source_(jobdef::pathsFromJson(jobdef::requiredStrings(members, "source"))),
      filterType_(jobdef::optionalInt(members, "filterType", allFiles)),
      compress_(jobdef::optionalBool(members, "compress", true)),
      schedule_(jobdef::scheduleFromJson(members, "schedule", scheduleIsValid_)),
      runMissed_(jobdef::optionalBool(members, "runMissed", true)) {
    const std::vector<std::string> extensions = jobdef::optionalStrings(members, "extensions");
    extensions_.resize(extensions.size());
    std::transform(extensions.begin(), extensions.end(), extensions_.begin(), toWide);
}

BackupJobDefinition::BackupJobDefinition(const BackupJobDefinition&) = default;
BackupJobDefinition::~BackupJobDefinition() = default;

std::unique_ptr<JobDefinition> BackupJobDefinition::clone() const {
    return std::make_unique<BackupJobDefinition>(*this);
}

void BackupJobDefinition::setFilter(int32_t type, std::vector<std::wstring> extensions) {
    filterType_ = type;
    extensions_ = std::move(extensions);
}

bool BackupJobDefinition::setSchedule(const JobSchedule& schedule) {
    if (!schedule.isValid()) {
        return false;
    }
    schedule_ = schedule;
    scheduleIsValid_ = true;
    return true;
}

void BackupJobDefinition::describe(json_spirit::Object& members) const {
    JobDefinition::describe(members);
    json_spirit::Array extensions(extensions_.size());
    std::transform(extensions_.begin(), extensions_.end(), extensions.begin(), toUtf8);
    members["source"] = jobdef::pathsToJson(source_);
    members["filterType"] = filterType_;
    members["extensions"] = std::move(extensions);
    members["compress"] = compress_;
    members["runMissed"] = runMissed_;
    if (!scheduleIsValid_) {
        return;
    }
    json_spirit::Value& schedule = members["schedule"];
    if (schedule.type() != json_spirit::obj_type) {
        schedule = json_spirit::Object();
    }
    jobdef::scheduleToJson(schedule_, schedule.get_obj());
}

}  // namespace dorvo
