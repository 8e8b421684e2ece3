#include "text/agentlog.h"

#include "base/logfile.h"
#include "base/paths.h"
#include "base/text.h"

namespace dorvo::agent {
namespace {

// Empty when it is not known.
std::wstring logPath() {
    std::wstring directory;
    return dataDirectory(directory) ? directory + L"\\log" : std::wstring();
}

}  // namespace

void noteInLog(LogLevel level, const std::string& text) {
    const std::wstring path = logPath();
    if (!path.empty() && openLogFile(path)) {
        logLine(level, text);
        closeLogFile();
    }
}

std::string logSaysWhy() {
    return "the log file '" + toUtf8(logPath()) + "' says why";
}

}  // namespace dorvo::agent
