#include "jobdef/restorejobdefinition.h"

#include <utility>

#include "jobdef/definitionfields.h"

namespace dorvo {

RestoreJobDefinition::RestoreJobDefinition(std::string id, std::wstring name, std::string user)
    : JobDefinition(restoreType, std::move(id), std::move(name), std::move(user)) {}

RestoreJobDefinition::RestoreJobDefinition(const json_spirit::Object& members)
    : JobDefinition(members),
      machine_(jobdef::requiredString(members, "machine")),
      jobDefinitionId_(jobdef::requiredString(members, "jobdefinitionid")),
      jobInstanceId_(jobdef::requiredString(members, "jobinstanceid")),
      source_(jobdef::pathsFromJson(jobdef::requiredStrings(members, "source"))),
      target_(jobdef::pathFromJson(jobdef::requiredString(members, "target"))),
      prefix_(jobdef::pathFromJson(jobdef::optionalString(members, "prefix"))),
      conflict_(jobdef::optionalInt(members, "conflict", conflictKeep)) {}

RestoreJobDefinition::RestoreJobDefinition(const RestoreJobDefinition&) = default;
RestoreJobDefinition::~RestoreJobDefinition() = default;

std::unique_ptr<JobDefinition> RestoreJobDefinition::clone() const {
    return std::make_unique<RestoreJobDefinition>(*this);
}

void RestoreJobDefinition::setOrigin(std::string machine, std::string jobDefinitionId,
                                     std::string jobInstanceId) {
    machine_ = std::move(machine);
    jobDefinitionId_ = std::move(jobDefinitionId);
    jobInstanceId_ = std::move(jobInstanceId);
}

void RestoreJobDefinition::setTarget(std::wstring target, std::wstring prefix) {
    target_ = std::move(target);
    prefix_ = std::move(prefix);
}

void RestoreJobDefinition::describe(json_spirit::Object& members) const {
    JobDefinition::describe(members);
    members["machine"] = machine_;
    members["jobdefinitionid"] = jobDefinitionId_;
    members["jobinstanceid"] = jobInstanceId_;
    members["source"] = jobdef::pathsToJson(source_);
    members["target"] = jobdef::pathToJson(target_);
    members["prefix"] = jobdef::pathToJson(prefix_);
    members["conflict"] = conflict_;
}

}  // namespace dorvo
