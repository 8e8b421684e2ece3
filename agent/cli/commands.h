// The commands of the command line, by the file that has them, and their table.
//
// A command is a class of that file alone. describe() adds its parser with arguments and help;
// values go into the object, which outlives the parser. run() carries it out after it was chosen,
// and returns the exit code. What fails ends in an AgentError. One thread.
//
// Listings read the disk; what changes anything goes through openEngine().
#pragma once

#include <CLI/CLI.hpp>

#include <memory>
#include <vector>

#include "text/terminal.h"

namespace dorvo::agent {

class Command {
public:
    Command() = default;
    virtual ~Command() = default;
    Command(const Command&) = delete;
    Command& operator=(const Command&) = delete;

    // Returns the command's own parser, owned by `parent`.
    virtual CLI::App* describe(CLI::App& parent) = 0;
    virtual int run(Terminal& terminal) = 0;
};

using CommandPtr = std::unique_ptr<Command>;

// settingscommands.cpp
CommandPtr serverCommand();
CommandPtr loginCommand();
CommandPtr logoutCommand();
CommandPtr keyCommand();
CommandPtr snapshotsCommand();

// backupcommands.cpp
CommandPtr backupCommand();
CommandPtr excludeCommand();

// restorecommand.cpp
CommandPtr restoreCommand();

// runcommands.cpp
CommandPtr startCommand();
CommandPtr resumeCommand();
CommandPtr pauseCommand();
CommandPtr stopCommand();
CommandPtr removeCommand();

// jobscommands.cpp
CommandPtr jobsCommand();
CommandPtr showCommand();
CommandPtr watchCommand();

// instancescommands.cpp
CommandPtr instancesCommand();
CommandPtr filesCommand();

// residentcommands.cpp
CommandPtr residentCommand();
CommandPtr serviceCommand();

// All, in the order in which the help shows them.
std::vector<CommandPtr> makeCommands();

}  // namespace dorvo::agent
