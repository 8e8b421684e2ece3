// Sees to it that the users of web jobs have a session with the server.
//
// It says when a login is tried, Web_Login tries it: for a user with a password on this machine and
// no session at once, and when that fails again as the options say ("loginRetrytimes" tries,
// "loginAgainAfter" seconds apart). A password that the server has refused is not tried again: the
// log says what to do. A thread of its own; looks at start and when something happens to a job.
#pragma once

#include <memory>
#include <string>

#include "base/handle.h"
#include "engine/moduleengine.h"
#include "resident/loginplan.h"

namespace dorvo::agent {

class LoginKeeper {
public:
    // The engine is borrowed. Throws AgentError when the system gives no thread.
    explicit LoginKeeper(ModuleEngine& engine);
    // Waits for a try in progress.
    ~LoginKeeper();
    LoginKeeper(const LoginKeeper&) = delete;
    LoginKeeper& operator=(const LoginKeeper&) = delete;

private:
    static DWORD WINAPI body(void* self);
    void keep();
    void tryLogin(const std::string& user);

    ModuleEngine& engine_;
    LoginPlan plan_;  // the thread's
    KernelHandle stop_;
    KernelHandle look_;  // auto reset: something happened
    std::unique_ptr<Engine::Subscription> events_;
    HANDLE thread_ = nullptr;
};

}  // namespace dorvo::agent
