// What a backup job stores, and when.
#pragma once

#include <string>
#include <vector>

#include "jobdef/jobdefinition.h"
#include "jobdef/jobschedule.h"

namespace dorvo {

class DORVO_JOBDEF_API BackupJobDefinition : public JobDefinition {
public:
    // What the list of extensions is for. A file of a later version may say another number: such a
    // job takes all files.
    enum FilterType : int32_t { allFiles = 0, extensionsOnly = 1, extensionsLeftOut = 2 };

    BackupJobDefinition(std::string id, std::wstring name, std::string user);
    // Throws std::runtime_error for a missing or wrongly typed required member.
    explicit BackupJobDefinition(const json_spirit::Object& members);
    BackupJobDefinition(const BackupJobDefinition&);
    ~BackupJobDefinition() override;

    std::unique_ptr<JobDefinition> clone() const override;

    // Absolute paths of files, folders and volume roots.
    const std::vector<std::wstring>& source() const { return source_; }
    // A FilterType, or another number.
    int32_t filterType() const { return filterType_; }
    const std::vector<std::wstring>& extensions() const { return extensions_; }
    bool compress() const { return compress_; }
    const JobSchedule& schedule() const { return schedule_; }
    // False when the file's schedule makes no sense to this version. The job then starts by hand,
    // and what the file says is written back, until another schedule is set.
    bool scheduleIsValid() const { return scheduleIsValid_; }
    // A start that fell due while the machine was off is made up for.
    bool runMissed() const { return runMissed_; }

    void setSource(std::vector<std::wstring> source) { source_ = std::move(source); }
    void setFilter(int32_t type, std::vector<std::wstring> extensions);
    void setCompress(bool compress) { compress_ = compress; }
    // False for a schedule that is not valid; the old one then stays.
    bool setSchedule(const JobSchedule& schedule);
    void setRunMissed(bool runMissed) { runMissed_ = runMissed; }

protected:
    void describe(json_spirit::Object& members) const override;

private:
    std::vector<std::wstring> source_;
    int32_t filterType_ = allFiles;
    std::vector<std::wstring> extensions_;
    bool compress_ = true;
    bool scheduleIsValid_ = true;
    JobSchedule schedule_;
    bool runMissed_ = true;
};

}  // namespace dorvo
