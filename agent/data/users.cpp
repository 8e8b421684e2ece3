#include "data/users.h"

#include <windows.h>

#include <lmcons.h>

#include <algorithm>
#include <array>

#include "base/handle.h"
#include "base/paths.h"
#include "base/text.h"
#include "text/agenterror.h"
#include "text/singletons.h"

namespace dorvo::agent {

void requireDataAccess() {
    std::wstring directory;
    if (!dataDirectory(directory)) {
        return;
    }
    WIN32_FIND_DATAW entry;
    const FindHandle search(FindFirstFileW(longPath(directory + L"\\*").c_str(), &entry));
    if (!search && GetLastError() == ERROR_ACCESS_DENIED) {
        throw AgentError(
            "The agent's data may be read by administrators only: run the command again in a "
            "console that was opened as administrator");
    }
}

std::string chooseUser(const std::string& asked) {
    const std::vector<std::string> loggedIn = cookies().users(serverOfOptions());
    if (!asked.empty()) {
        if (std::find(loggedIn.begin(), loggedIn.end(), asked) == loggedIn.end()) {
            throw AgentError("'" + asked + "' has not logged in: run 'agent login " + asked +
                             "' first");
        }
        return asked;
    }
    if (loggedIn.empty()) {
        throw AgentError("Nobody has logged in yet: run 'agent login USER' first");
    }
    if (loggedIn.size() > 1) {
        std::string names;
        for (const std::string& user : loggedIn) {
            names += (names.empty() ? "" : ", ") + user;
        }
        throw AgentError("Several users have logged in (" + names + "): choose one with --user",
                         exitUsage);
    }
    return loggedIn.front();
}

std::string chooseKeyOwner(const std::string& asked) {
    requireDataAccess();
    if (!asked.empty()) {
        return asked;
    }
    if (!cookies().users().empty()) {
        return chooseUser({});
    }
    std::array<wchar_t, UNLEN + 1> account{};
    DWORD size = account.size();
    if (GetUserNameW(account.data(), &size) == 0) {
        throw AgentError(
            "The name of the Windows account cannot be found out: name one with "
            "--user");
    }
    return toUtf8(account.data());
}

void requireServer() {
    requireDataAccess();
    std::string host;
    unsigned short port = 0;
    options().getServerInfo(host, port);
    if (host.empty()) {
        throw AgentError("No server is set: run 'agent server set HOST:PORT' first");
    }
}

}  // namespace dorvo::agent
