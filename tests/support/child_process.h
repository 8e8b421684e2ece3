// Runs one disabled test of this program in a process of its own: a second process for tests of
// what processes share, and one that can be killed.
//
// The test there finds its argument with childArgument(). The object waits for the process, after
// killing it when nobody has waited before.
#pragma once

#include <windows.h>

#include <cstdlib>
#include <string>

#include "base/handle.h"

namespace dorvo::test {

inline std::string childArgument() {
    char text[512] = "";
    const DWORD length = GetEnvironmentVariableA("DORVO_TEST_ARGUMENT", text, sizeof(text));
    return std::string(text, length);
}

class ChildProcess {
public:
    // `name` is "Suite.DISABLED_Name".
    ChildProcess(const std::string& name, const std::string& argument) {
        SetEnvironmentVariableA("DORVO_TEST_ARGUMENT", argument.c_str());
        char program[MAX_PATH];
        GetModuleFileNameA(nullptr, program, MAX_PATH);
        std::string line = std::string("\"") + program +
                           "\" --gtest_also_run_disabled_tests --gtest_filter=" + name;
        STARTUPINFOA startup{};
        startup.cb = sizeof(startup);
        PROCESS_INFORMATION made{};
        if (CreateProcessA(program, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                           &startup, &made) != 0) {
            process_.reset(made.hProcess);
            CloseHandle(made.hThread);
        }
    }
    ~ChildProcess() { kill(); }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // True when the test there has passed.
    bool passed() {
        DWORD code = 1;
        return WaitForSingleObject(process_.get(), 60'000) == WAIT_OBJECT_0 &&
               GetExitCodeProcess(process_.get(), &code) != 0 && code == 0;
    }
    void kill() {
        if (WaitForSingleObject(process_.get(), 0) == WAIT_TIMEOUT) {
            TerminateProcess(process_.get(), 98);
            WaitForSingleObject(process_.get(), INFINITE);
        }
    }

private:
    KernelHandle process_;
};

}  // namespace dorvo::test
