#include "cli/keycommand.h"

#include <algorithm>

#include <windows.h>

#include "base/paths.h"
#include "base/text.h"
#include "control/openengine.h"
#include "data/sourcepath.h"
#include "data/users.h"
#include "text/agenterror.h"
#include "text/keyfailure.h"
#include "text/printable.h"
#include "text/secretinput.h"
#include "text/singletons.h"

namespace dorvo::agent {
namespace {

// Fewer can be tried in time by who finds the file.
constexpr size_t shortPassphrase = 12;

size_t codePoints(const std::string& utf8) {
    return static_cast<size_t>(std::count_if(utf8.begin(), utf8.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U;
    }));
}

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

}  // namespace

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
    if (codePoints(passphrase.text) < shortPassphrase) {
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

}  // namespace dorvo::agent
