#include "resident/loginkeeper.h"

#include <algorithm>
#include <mutex>

#include "base/log.h"
#include "base/logfile.h"
#include "base/thread.h"
#include "engine/modulehost.h"
#include "job/transferfailure.h"
#include "storage/web/web_login.h"
#include "text/agenterror.h"
#include "text/failuretext.h"
#include "text/singletons.h"

namespace dorvo::agent {
namespace {

std::set<std::string> usersOfWebJobs() {
    JobManagerImpl& manager = ModuleHost::manager();
    std::lock_guard guard(manager.locker());
    std::set<std::string> users;
    for (const Job* job : manager.jobs()) {
        if (job->definition().storage() == StorageKind::web) {
            users.insert(job->definition().user());
        }
    }
    return users;
}

LoginPlan::Rules rulesOfOptions() {
    // Only a file edited by hand says 0 or less.
    return {.tries = options().loginRetrytimes(),
            .againMs = static_cast<uint64_t>(std::max(options().loginAgainAfter(), 1)) * 1000};
}

LoginPlan::Outcome outcomeOf(uint32_t error) {
    return error == 0                   ? LoginPlan::Outcome::done
           : error == errorUnauthorized ? LoginPlan::Outcome::refused
                                        : LoginPlan::Outcome::failed;
}

}  // namespace

LoginKeeper::LoginKeeper(ModuleEngine& engine)
    : engine_(engine),
      stop_(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
      look_(CreateEventW(nullptr, FALSE, FALSE, nullptr)),
      events_(engine.subscribe([this](const std::string&) { SetEvent(look_.get()); })) {
    if (!startThread(&LoginKeeper::body, this, thread_)) {
        throw AgentError("The keeper of the logins cannot be started: " +
                         failureText(GetLastError()));
    }
}

LoginKeeper::~LoginKeeper() {
    SetEvent(stop_.get());
    joinThread(thread_);
}

DWORD LoginKeeper::body(void* self) {
    static_cast<LoginKeeper*>(self)->keep();
    return 0;
}

void LoginKeeper::keep() {
    const HANDLE wakers[] = {stop_.get(), look_.get()};
    for (;;) {
        std::set<std::string> users = usersOfWebJobs();
        std::erase_if(users, [](const std::string& user) { return !Web_Login::needed(user); });
        plan_.need(users, GetTickCount64());
        for (const std::string& user : plan_.due(GetTickCount64())) {
            tryLogin(user);
        }
        DWORD patience = INFINITE;
        if (const auto next = plan_.next()) {
            const uint64_t now = GetTickCount64();
            patience =
                static_cast<DWORD>(std::min<uint64_t>(*next - std::min(now, *next), MAXLONG));
        }
        if (WaitForMultipleObjects(2, wakers, FALSE, patience) == WAIT_OBJECT_0) {
            return;
        }
    }
}

void LoginKeeper::tryLogin(const std::string& user) {
    const uint32_t error = engine_.accounts().renew(user);
    const bool last = plan_.tried(user, outcomeOf(error), rulesOfOptions(), GetTickCount64());
    if (error == errorUnauthorized) {
        logLine(LogLevel::error, "The server refused the password of '" + user +
                                     "': run 'agent login " + user + "'.");
    } else if (error != 0 && error != ERROR_CANCELLED) {
        logLine(LogLevel::warning,
                "'" + user + "' could not be logged in: " + requestFailure(error, user) +
                    (last ? "; run 'agent login " + user + "'." : "; the next try follows."));
    }
}

}  // namespace dorvo::agent
