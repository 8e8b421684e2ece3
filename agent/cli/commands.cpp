#include "cli/commands.h"

#include "cli/backupcommand.h"
#include "cli/excludecommand.h"
#include "cli/filescommand.h"
#include "cli/instancescommand.h"
#include "cli/jobscommand.h"
#include "cli/keycommand.h"
#include "cli/logincommand.h"
#include "cli/logoutcommand.h"
#include "cli/removecommand.h"
#include "cli/residentcommand.h"
#include "cli/restorecommand.h"
#include "cli/runcommand.h"
#include "cli/servercommand.h"
#include "cli/servicecommand.h"
#include "cli/showcommand.h"
#include "cli/snapshotscommand.h"
#include "cli/tellcommand.h"
#include "cli/watchcommand.h"

namespace dorvo::agent {

std::vector<std::unique_ptr<Command>> makeCommands() {
    std::vector<std::unique_ptr<Command>> commands;
    commands.push_back(std::make_unique<ServerCommand>());
    commands.push_back(std::make_unique<LoginCommand>());
    commands.push_back(std::make_unique<LogoutCommand>());
    commands.push_back(std::make_unique<BackupCommand>());
    commands.push_back(std::make_unique<RestoreCommand>());
    commands.push_back(std::make_unique<RunCommand>(JobVerb::start));
    commands.push_back(std::make_unique<RunCommand>(JobVerb::resume));
    commands.push_back(std::make_unique<TellCommand>(JobVerb::pause));
    commands.push_back(std::make_unique<TellCommand>(JobVerb::stop));
    commands.push_back(std::make_unique<RemoveCommand>());
    commands.push_back(std::make_unique<WatchCommand>());
    commands.push_back(std::make_unique<JobsCommand>());
    commands.push_back(std::make_unique<ShowCommand>());
    commands.push_back(std::make_unique<InstancesCommand>());
    commands.push_back(std::make_unique<FilesCommand>());
    commands.push_back(std::make_unique<ExcludeCommand>());
    commands.push_back(std::make_unique<KeyCommand>());
    commands.push_back(std::make_unique<SnapshotsCommand>());
    commands.push_back(std::make_unique<ResidentCommand>());
    commands.push_back(std::make_unique<ServiceCommand>());
    return commands;
}

}  // namespace dorvo::agent
