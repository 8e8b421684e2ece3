// The log file of the data directory, for what is to be said before the job module is open.
#pragma once

#include <string>

#include "base/log.h"

namespace dorvo::agent {

// Adds a line to the log file, which is closed again; other processes may have it open. Without a
// data directory it is lost.
void noteInLog(LogLevel level, const std::string& text);

// "the log file 'C:\ProgramData\...\log' says why".
std::string logSaysWhy();

}  // namespace dorvo::agent
