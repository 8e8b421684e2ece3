#include "commands.h"

#include "backupcommand.h"
#include "excludecommand.h"
#include "instancescommand.h"
#include "jobscommand.h"
#include "logincommand.h"
#include "resumecommand.h"
#include "servercommand.h"
#include "showcommand.h"
#include "startcommand.h"

namespace dorvo::agent {

std::vector<std::unique_ptr<Command>> makeCommands() {
    std::vector<std::unique_ptr<Command>> commands;
    commands.push_back(std::make_unique<ServerCommand>());
    commands.push_back(std::make_unique<LoginCommand>());
    commands.push_back(std::make_unique<BackupCommand>());
    commands.push_back(std::make_unique<StartCommand>());
    commands.push_back(std::make_unique<ResumeCommand>());
    commands.push_back(std::make_unique<JobsCommand>());
    commands.push_back(std::make_unique<ShowCommand>());
    commands.push_back(std::make_unique<InstancesCommand>());
    commands.push_back(std::make_unique<ExcludeCommand>());
    return commands;
}

}  // namespace dorvo::agent
