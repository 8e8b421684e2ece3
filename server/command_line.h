// What the program is asked to do, from its arguments.
#pragma once

#include <optional>
#include <string>

#include "storage_server.h"

namespace dorvo {

struct CommandLine {
    enum class Verb { serve, addUser, print };

    Verb verb = Verb::serve;
    ServerOptions options;
    std::string logFile;  // empty: standard error
    std::string user;     // for addUser
    std::string text;     // for print: help, or the version
};

// Throws std::runtime_error with one sentence when the arguments make no sense.
CommandLine parseCommandLine(int argc, const char* const* argv);

}  // namespace dorvo
