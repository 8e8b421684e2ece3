// The resident agent as a Windows service.
//
// Every operation throws AgentError with what to do about it, above all when the user is no
// administrator. start() and stop() wait until the service has got there.
#pragma once

#include <string>

namespace dorvo::agent {

class Service {
public:
    static constexpr const wchar_t* name = L"Dorvo";

    // Starts with the system, after a delay, and again after it has failed. Runs this executable.
    static void install();
    // Stops it first.
    static void uninstall();
    static void start();
    static void stop();
    // "running", "stopped", "not installed"...
    static std::string status();

    // What the service manager runs: the resident, until the manager ends it. The exit code.
    static int run();
};

}  // namespace dorvo::agent
