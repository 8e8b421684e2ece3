// What a restore job brings back, and where to.
#pragma once

#include <string>
#include <vector>

#include "jobdef/jobdefinition.h"

namespace dorvo {

class DORVO_JOBDEF_API RestoreJobDefinition : public JobDefinition {
public:
    enum Conflict : int32_t { conflictKeep = 1, conflictOverwrite = 2, conflictRename = 3 };

    RestoreJobDefinition(std::string id, std::wstring name, std::string user);
    // Throws std::runtime_error for a missing or wrongly typed required member.
    explicit RestoreJobDefinition(const json_spirit::Object& members);
    RestoreJobDefinition(const RestoreJobDefinition&);
    ~RestoreJobDefinition() override;

    std::unique_ptr<JobDefinition> clone() const override;

    // The machine, backup job and run whose data is brought back.
    const std::string& machine() const { return machine_; }
    const std::string& jobDefinitionId() const { return jobDefinitionId_; }
    const std::string& jobInstanceId() const { return jobInstanceId_; }
    // Paths as they were backed up; empty means everything.
    const std::vector<std::wstring>& source() const { return source_; }
    // The folder to restore into; empty means where the files were.
    const std::wstring& target() const { return target_; }
    // The part of the original paths that the target stands for; may be empty.
    const std::wstring& prefix() const { return prefix_; }
    // 1 keeps a file that is there, 3 gives the restored one another name, others overwrite.
    int32_t conflict() const { return conflict_; }

    void setOrigin(std::string machine, std::string jobDefinitionId, std::string jobInstanceId);
    void setSource(std::vector<std::wstring> source) { source_ = std::move(source); }
    void setTarget(std::wstring target, std::wstring prefix);
    void setConflict(int32_t conflict) { conflict_ = conflict; }

protected:
    void describe(json_spirit::Object& members) const override;

private:
    std::string machine_;
    std::string jobDefinitionId_;
    std::string jobInstanceId_;
    std::vector<std::wstring> source_;
    std::wstring target_;
    std::wstring prefix_;
    int32_t conflict_ = conflictKeep;
};

}  // namespace dorvo
