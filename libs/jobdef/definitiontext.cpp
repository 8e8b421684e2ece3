#include "jobdef/definitiontext.h"

#include "jobdef/backupjobdefinition.h"
#include "jobdef/definitionfields.h"
#include "jobdef/restorejobdefinition.h"
#include "json_spirit/reader.h"

namespace dorvo::jobdef {
namespace {

// A definition of a later version: kept whole, so that its job is not taken for rubbish.
class OtherJobDefinition : public JobDefinition {
public:
    explicit OtherJobDefinition(const json_spirit::Object& members) : JobDefinition(members) {}

    std::unique_ptr<JobDefinition> clone() const override {
        return std::make_unique<OtherJobDefinition>(*this);
    }
};

std::unique_ptr<JobDefinition> make(const json_spirit::Object& members) {
    switch (requiredInt(members, "type")) {
        case JobDefinition::backupType: return std::make_unique<BackupJobDefinition>(members);
        case JobDefinition::restoreType: return std::make_unique<RestoreJobDefinition>(members);
        default: return std::make_unique<OtherJobDefinition>(members);
    }
}

}  // namespace

std::unique_ptr<JobDefinition> definitionFromText(const std::string& text) {
    try {
        json_spirit::Value value;
        json_spirit::read_or_throw(text, value);
        return make(value.get_obj());
    } catch (const json_spirit::Error_position&) {
        return nullptr;
    } catch (const UnknownKind&) {
        throw;
    } catch (const std::runtime_error&) {
        return nullptr;
    }
}

}  // namespace dorvo::jobdef
