// agent backup PATH...: defines the backup job of these paths, or finds the one there is, and runs
// it; or gives it a schedule, or takes it off, and does not run it now.
//
// With --name, the user's job of that name is meant, and its paths become the given ones; without,
// the user's job of exactly these paths that keeps its backups in the same place. So the same
// command line is the same job, and its second run sends only what has changed.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "cli/command.h"
#include "cli/scheduleoptions.h"
#include "data/backupplace.h"
#include "data/jobstore.h"
#include "run/runflags.h"

namespace dorvo::agent {

class BackupCommand : public Command {
public:
    CLI::App* describe(CLI::App& parent) override;
    int run(Terminal& terminal) override;

private:
    std::unique_ptr<BackupJobDefinition> define(const JobList& jobs, const std::string& user,
                                                const BackupPlace& place) const;
    void setRules(BackupJobDefinition& job) const;
    void sayChanges(Terminal& terminal, const BackupJobDefinition& known,
                    const BackupJobDefinition& changed) const;
    int saySchedule(Terminal& terminal, const BackupJobDefinition& job, bool resident) const;

    std::vector<std::string> paths_;
    std::string name_;
    std::vector<std::string> onlyExtensions_;
    std::vector<std::string> skippedExtensions_;
    bool plain_ = false;
    std::string local_;
    std::string user_;
    ScheduleOptions schedule_;
    RunFlags flags_;
};

// The extensions of a definition: each "txt", ".txt" or "*.txt". Throws AgentError (wrong usage)
// for an empty one and for one that is no valid pattern.
std::vector<std::wstring> readExtensions(const std::vector<std::string>& texts);

}  // namespace dorvo::agent
