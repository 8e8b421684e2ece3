#include <windows.h>

#include <shellapi.h>

#include "base/logfile.h"
#include "base/text.h"
#include "cli/commandline.h"
#include "cli/commands.h"
#include "text/consoleterminal.h"

namespace {

// The command line as the system keeps it: what main() gets has lost what the code page lacks.
std::vector<std::string> commandLineArguments() {
    std::vector<std::string> arguments;
    int count = 0;
    LPWSTR* const words = CommandLineToArgvW(GetCommandLineW(), &count);
    for (int i = 1; words != nullptr && i < count; ++i) {
        arguments.push_back(dorvo::toUtf8(words[i]));
    }
    LocalFree(words);
    return arguments;
}

}  // namespace

int main() {
    // Standard error is the user's; the commands that run the module open its log file.
    dorvo::closeLogFile();
    dorvo::agent::ConsoleTerminal terminal;
    return dorvo::agent::runCommandLine(commandLineArguments(), dorvo::agent::makeCommands(),
                                        terminal);
}
