#include "cli/servercommand.h"

#include "control/openengine.h"
#include "data/serveraddress.h"
#include "text/agenterror.h"
#include "text/singletons.h"

namespace dorvo::agent {

CLI::App* ServerCommand::describe(CLI::App& parent) {
    CLI::App* const server = parent.add_subcommand("server", "Choose the storage server");
    server->require_subcommand(1);
    CLI::App* const set = server->add_subcommand("set", "Set the server's address");
    set->add_option("HOST:PORT", address_, "Name or IPv4 address, and port")->required();
    set->add_option("--name", name_, "A name to show for it");
    set->add_flag("--keep-login", keepLogin_,
                  "Take the sessions and passwords along: it is the same server");
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
    openEngine()->setServer(address->host, address->port, name_, keepLogin_);
    const std::string text = address->host + ":" + std::to_string(address->port);
    terminal.out("The server is " + text + ".");
    const std::string server = serverName(address->host, address->port);
    if (!keepLogin_ && !cookies().users().empty() && cookies().users(server).empty()) {
        terminal.out(
            "Nobody has logged in there: run 'agent login USER', or, when it is the server "
            "of before under a new name, 'agent server set " +
            text + " --keep-login'.");
    }
    return exitDone;
}

}  // namespace dorvo::agent
