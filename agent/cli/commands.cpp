#include "cli/commands.h"

namespace dorvo::agent {

std::vector<CommandPtr> makeCommands() {
    static constexpr CommandPtr (*makers[])() = {
        &serverCommand,  &loginCommand,  &logoutCommand,    &backupCommand,    &restoreCommand,
        &startCommand,   &resumeCommand, &pauseCommand,     &stopCommand,      &removeCommand,
        &watchCommand,   &jobsCommand,   &showCommand,      &instancesCommand, &filesCommand,
        &excludeCommand, &keyCommand,    &snapshotsCommand, &residentCommand,  &serviceCommand,
    };
    std::vector<CommandPtr> commands;
    for (const auto& make : makers) {
        commands.push_back(make());
    }
    return commands;
}

}  // namespace dorvo::agent
