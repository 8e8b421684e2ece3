#include "servercommand.h"

#include "agenterror.h"
#include "serveraddress.h"
#include "singletons.h"

namespace dorvo::agent {

CLI::App* ServerCommand::describe(CLI::App& parent) {
    CLI::App* const server = parent.add_subcommand("server", "Choose the storage server");
    server->require_subcommand(1);
    CLI::App* const set = server->add_subcommand("set", "Set the server's address");
    set->add_option("HOST:PORT", address_, "Name or IPv4 address, and port")->required();
    set->add_option("--name", name_, "A name to show for it");
    set->footer("Example:\n  agent server set backup.example.org:8080");
    server->footer("Example:\n  agent server set backup.example.org:8080");
    return server;
}

int ServerCommand::run(Terminal& terminal) {
    const auto address = parseServerAddress(address_);
    if (!address) {
        throw AgentError("'" + address_ + "' is no server address: it has the form HOST:PORT",
                         exitUsage);
    }
    // A backup had better wait for a server that is being restarted than fail its files.
    options().waitForServer(true);
    // Saves all options.
    if (!options().setServerInfo(name_.c_str(), address->host.c_str(), address->port)) {
        throw AgentError("The options file could not be written");
    }
    terminal.out("The server is " + address->host + ":" + std::to_string(address->port) + ".");
    return exitDone;
}

}  // namespace dorvo::agent
