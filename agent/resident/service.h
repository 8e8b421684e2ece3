// The resident agent as a Windows service: what an administrator does with it.
//
// Every operation throws AgentError with what to do about it. start() and stop() wait until the
// service has got there.
#pragma once

#include <string>

namespace dorvo::agent {

class Service {
public:
    static constexpr const wchar_t* name = L"Dorvo";

    // Starts with the system, after a delay, and again when it has failed. Its program is this one
    // with the arguments. The data directory is the administrators' from then on.
    static void install(const std::wstring& arguments);
    // Stops it first.
    static void uninstall();
    // Both do nothing when it is so already.
    static void start();
    static void stop();

    struct Status {
        std::string text;  // "running", "stopped", "starting", "stopping" or "not installed"
        unsigned long process = 0;
        bool running = false;
    };
    static Status status();
};

}  // namespace dorvo::agent
