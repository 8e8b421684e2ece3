// The arguments by which a command names one run of a backup job, and what they stand for.
#pragma once

#include <CLI/CLI.hpp>

#include <memory>
#include <string>

#include "data/backupplace.h"

namespace dorvo::agent {

struct InstanceQuery {
    std::string instance;
    std::string job;
    std::string machine;
    std::string local;
    std::string user;

    // Adds INSTANCE, and the options.
    void describe(CLI::App& command);

    // The completed run that is meant. Throws AgentError.
    StoredInstance choose(const BackupPlace& place) const;
};

}  // namespace dorvo::agent
