#include "commands.h"

#include "backupcommand.h"
#include "excludecommand.h"
#include "filescommand.h"
#include "instancescommand.h"
#include "jobscommand.h"
#include "keycommand.h"
#include "logincommand.h"
#include "logoutcommand.h"
#include "removecommand.h"
#include "residentcommand.h"
#include "restorecommand.h"
#include "runcommand.h"
#include "servercommand.h"
#include "servicecommand.h"
#include "showcommand.h"
#include "snapshotscommand.h"
#include "tellcommand.h"
#include "watchcommand.h"

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
