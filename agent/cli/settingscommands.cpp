// The commands that set the agent up: its server, its sessions, its keys, its snapshots.
#include "cli/commands.h"

#include <windows.h>

#include <string>

#include "base/machine_name.h"
#include "base/paths.h"
#include "base/text.h"
#include "control/openengine.h"
#include "data/givenpaths.h"
#include "data/serveraddress.h"
#include "data/users.h"
#include "text/agenterror.h"
#include "text/failuretext.h"
#include "text/format.h"
#include "text/secret.h"
#include "text/singletons.h"

namespace dorvo::agent {
namespace {

// agent server set HOST:PORT: where the storage server is.
class ServerCommand : public Command {
public:
    CLI::App* describe(CLI::App& parent) override;
    int run(Terminal& terminal) override;

private:
    std::string address_;
    std::string name_;
    bool keepLogin_ = false;
};

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

// agent login USER: gets a session from the server and keeps it with the password.
class LoginCommand : public Command {
public:
    CLI::App* describe(CLI::App& parent) override;
    int run(Terminal& terminal) override;

private:
    Secret readPassword(Terminal& terminal) const;

    std::string user_;
    bool passwordFromInput_ = false;
};

CLI::App* LoginCommand::describe(CLI::App& parent) {
    CLI::App* const login = parent.add_subcommand("login", "Log in to the storage server");
    login->add_option("USER", user_, "The account's name")->required();
    login->add_flag("--password-stdin", passwordFromInput_,
                    "Read the password from standard input");
    login->footer(
        "Asks for the password on the terminal. The session and the password are kept encoded on "
        "this machine.\nExample:\n  agent login alice");
    return login;
}

int LoginCommand::run(Terminal& terminal) {
    requireServer();
    const Secret password = readPassword(terminal);
    openEngine()->login(user_, password.text, {});
    std::string machine;
    machineName(machine);  // the login has found it
    terminal.out("'" + user_ + "' is logged in as the user of machine '" + machine + "'.");
    return exitDone;
}

Secret LoginCommand::readPassword(Terminal& terminal) const {
    if (passwordFromInput_) {
        return readSecretLine(terminal, "password");
    }
    Secret password;
    if (!terminal.readSecret("Password for " + user_ + ": ", password.text)) {
        throw AgentError("No password was entered: type it on a terminal, or use --password-stdin",
                         exitUsage);
    }
    return password;
}

// agent logout USER: ends the user's sessions at the server and forgets them with the password.
class LogoutCommand : public Command {
public:
    CLI::App* describe(CLI::App& parent) override;
    int run(Terminal& terminal) override;

private:
    std::string user_;
};

CLI::App* LogoutCommand::describe(CLI::App& parent) {
    CLI::App* const logout =
        parent.add_subcommand("logout", "End the session with the storage server");
    logout->add_option("USER", user_, "The account's name")->required();
    logout->footer(
        "Forgets the password too. The key that opens the user's backups stays on this machine.\n"
        "Example:\n  agent logout alice");
    return logout;
}

int LogoutCommand::run(Terminal& terminal) {
    openEngine()->logout(user_, {});
    terminal.out("'" + user_ + "' is logged out.");
    return exitDone;
}

// Fewer can be tried in time by who finds the file.
constexpr size_t shortPassphrase = 12;

std::wstring filePath(const std::string& given) {
    std::wstring path = absolutePath(toWide(given));
    if (path.empty()) {
        throw AgentError("'" + given + "' is no path of a file", exitUsage);
    }
    return path;
}

[[noreturn]] void refuse(const std::wstring& file, const std::string& user) {
    throw AgentError(keyFailure(file, user, GetLastError()));
}

// agent key export|import FILE: the user's encryption key, taken to a recovery file and back.
class KeyCommand : public Command {
public:
    CLI::App* describe(CLI::App& parent) override;
    int run(Terminal& terminal) override;

private:
    void exportKey(Terminal& terminal) const;
    void importKey(Terminal& terminal) const;
    // Asks on the terminal, at `twice` again for the same, or reads standard input.
    Secret readPassphrase(Terminal& terminal, bool twice) const;

    CLI::App* import_ = nullptr;  // owned by the parser
    std::string file_;
    std::string user_;
    bool passphraseFromInput_ = false;
};

CLI::App* KeyCommand::describe(CLI::App& parent) {
    CLI::App* const key = parent.add_subcommand(
        "key", "Take the keys that open the backups to a recovery file, and back");
    key->require_subcommand(1);
    CLI::App* const out = key->add_subcommand("export", "Write the keys to a recovery file");
    import_ = key->add_subcommand("import", "Take the keys from a recovery file");
    for (CLI::App* const command : {out, import_}) {
        command->add_option("FILE", file_, "The recovery file")->required();
        command->add_flag("--passphrase-stdin", passphraseFromInput_,
                          "Read the passphrase from standard input");
    }
    out->add_option("--user", user_, "Whose keys; without it, who has logged in");
    import_->add_option("--user", user_,
                        "Whose keys they have to be; without it, whosever they are");
    out->footer(
        "Keep the file apart from this machine: without it, or without its passphrase, a lost "
        "machine is a lost backup.\nExample:\n  agent key export E:\\dorvo.key");
    import_->footer(
        "On a new machine, before the first backup or restore.\n"
        "Example:\n  agent key import E:\\dorvo.key");
    key->footer("Example:\n  agent key export E:\\dorvo.key");
    return key;
}

int KeyCommand::run(Terminal& terminal) {
    import_->parsed() ? importKey(terminal) : exportKey(terminal);
    return exitDone;
}

void KeyCommand::exportKey(Terminal& terminal) const {
    const std::wstring file = filePath(file_);
    const std::string user = chooseKeyOwner(user_);
    std::string checksum;
    if (!keys().keyChecksum(user.c_str(), checksum)) {
        refuse(file, user);  // before the user has thought of a passphrase
    }
    const Secret passphrase = readPassphrase(terminal, true);
    if (!keys().exportKey(user.c_str(), passphrase.text.c_str(), file.c_str())) {
        refuse(file, user);
    }
    if (columnsOf(passphrase.text) < shortPassphrase) {
        terminal.warn(
            "Warning: The passphrase is short: whoever finds the file can try them all. "
            "Export again, with " +
            std::to_string(shortPassphrase) + " characters or more.");
    }
    const size_t imported = keys().importedKeys(user.c_str());
    terminal.out((imported == 0 ? "The key" : "All " + std::to_string(imported + 1) + " keys") +
                 " of '" + printable(user) + (imported == 0 ? "' is" : "' are") + " in '" +
                 toUtf8(file) + "': keep the file and its passphrase apart from this machine.");
}

void KeyCommand::importKey(Terminal& terminal) const {
    const std::wstring file = filePath(file_);
    if (GetFileAttributesW(longPath(file).c_str()) == INVALID_FILE_ATTRIBUTES) {
        refuse(file, user_);
    }
    const Secret passphrase = readPassphrase(terminal, false);
    const ImportedKeys keys = openEngine()->importKeys(file, passphrase.text, user_);
    if (keys.beside == 0) {
        terminal.out("The key of '" + printable(keys.user) + "' is on this machine now.");
        return;
    }
    terminal.out("The keys of '" + printable(keys.user) + "' are on this machine now, " +
                 std::to_string(keys.beside) +
                 " beside the machine's own: each backup takes the one that it was made with.");
}

Secret KeyCommand::readPassphrase(Terminal& terminal, bool twice) const {
    if (passphraseFromInput_) {
        return readSecretLine(terminal, "passphrase");
    }
    Secret passphrase;
    if (!terminal.readSecret("Passphrase of the recovery file: ", passphrase.text)) {
        throw AgentError(
            "No passphrase was entered: type it on a terminal, or use --passphrase-stdin",
            exitUsage);
    }
    if (twice) {
        Secret again;
        terminal.readSecret("The same once more: ", again.text);
        if (again.text != passphrase.text) {
            throw AgentError("The two passphrases differ: nothing was written", exitUsage);
        }
    }
    return passphrase;
}

// agent snapshots on|off: whether backups read from volume snapshots.
class SnapshotsCommand : public Command {
public:
    CLI::App* describe(CLI::App& parent) override;
    int run(Terminal& terminal) override;

private:
    std::string choice_;
};

CLI::App* SnapshotsCommand::describe(CLI::App& parent) {
    CLI::App* const snapshots =
        parent.add_subcommand("snapshots", "Switch volume snapshots for backups on or off");
    snapshots->add_option("on|off", choice_, "From the next run on")
        ->required()
        ->check(CLI::IsMember({"on", "off"}));
    snapshots->footer(
        "With snapshots a backup sees each volume as it was when the run began, open files "
        "included; making them takes an administrator.\nExample:\n  agent snapshots on");
    return snapshots;
}

int SnapshotsCommand::run(Terminal& terminal) {
    openEngine()->setSnapshots(choice_ == "on");
    terminal.out("Volume snapshots are " + choice_ + ".");
    return exitDone;
}

}  // namespace

std::unique_ptr<Command> serverCommand() {
    return std::make_unique<ServerCommand>();
}

std::unique_ptr<Command> loginCommand() {
    return std::make_unique<LoginCommand>();
}

std::unique_ptr<Command> logoutCommand() {
    return std::make_unique<LogoutCommand>();
}

std::unique_ptr<Command> keyCommand() {
    return std::make_unique<KeyCommand>();
}

std::unique_ptr<Command> snapshotsCommand() {
    return std::make_unique<SnapshotsCommand>();
}

}  // namespace dorvo::agent
