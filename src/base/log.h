// The one logging function of the module, over ACE's log facility.
//
// Formats are ACE's: "%m" is the text of the thread's last error, "%Q" a 64-bit unsigned number,
// "%W" a UTF-16 string, "%t" the thread id. Every format is prefixed with "@%t@" and ends in "\n".
// Any thread may log; the thread's last error is kept.
#pragma once

#include <ace/Log_Msg.h>

#include "base/api.h"

namespace dorvo {

enum class LogLevel : int {
    trace = LM_TRACE,
    debug = LM_DEBUG,
    information = LM_INFO,
    warning = LM_WARNING,
    error = LM_ERROR,
};
static_assert(LM_TRACE == 02 && LM_DEBUG == 04 && LM_INFO == 010 && LM_WARNING == 040 &&
              LM_ERROR == 0200);

void log(LogLevel level, const char* format, ...);

// Traces a function's entry and exit with its name and source file.
class FunctionTrace {
public:
    FunctionTrace(const char* function, const char* file);
    ~FunctionTrace();
    FunctionTrace(const FunctionTrace&) = delete;
    FunctionTrace& operator=(const FunctionTrace&) = delete;

private:
    const char* function_;
};

// Brings ACE up once for the process. Everything that calls ACE directly calls this first; log()
// does so by itself. Never torn down: at process exit other threads are gone, and ACE would wait.
void startAce();

// Log lines go to the backend that ACE_Log_Msg::msg_backend names while the CUSTOM flag is set
// (see LogCapture in the tests), to standard error by default, nowhere after muteLog().
void muteLog();

}  // namespace dorvo
