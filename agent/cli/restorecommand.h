// agent restore INSTANCE [PATH...]: defines the restore job of these arguments, or finds the one
// there is, and runs it.
//
// A job restores what it did from the same backup job to the same place: another run or another
// conflict rule makes no new job, unless it has a run to go on with.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "cli/command.h"
#include "cli/instancequery.h"
#include "jobdef/restorejobdefinition.h"
#include "run/runflags.h"

namespace dorvo::agent {

class RestoreCommand : public Command {
public:
    CLI::App* describe(CLI::App& parent) override;
    int run(Terminal& terminal) override;

private:
    // What is to be brought back, as the backup spells it.
    struct Selection {
        std::vector<std::wstring> paths;  // empty: everything
        std::wstring prefix;
    };

    Selection select(const BackupPlace& place, const StoredInstance& run) const;
    std::unique_ptr<RestoreJobDefinition> define(const BackupPlace& place,
                                                 const StoredInstance& run,
                                                 const Selection& selection,
                                                 const std::wstring& target) const;

    InstanceQuery query_;
    std::vector<std::string> paths_;
    std::string to_;
    std::string prefix_;
    std::string conflict_;
    RunFlags flags_;
};

// The folder of --to for a definition: absolute, with a backslash at its end, since a job puts
// nothing between it and what follows. It need not exist, its drive or share must. Throws
// AgentError (wrong usage).
std::wstring targetFolder(const std::string& to);

}  // namespace dorvo::agent
