#include "base/log.h"

#include <ace/ACE.h>
#include <ace/Init_ACE.h>
#include <ace/Log_Msg.h>
#include <ace/Object_Manager.h>

#include <cstdarg>
#include <mutex>
#include <string>

#include "base/last_error.h"

namespace dorvo {

static_assert(static_cast<int>(LogLevel::trace) == LM_TRACE);
static_assert(static_cast<int>(LogLevel::debug) == LM_DEBUG);
static_assert(static_cast<int>(LogLevel::information) == LM_INFO);
static_assert(static_cast<int>(LogLevel::warning) == LM_WARNING);
static_assert(static_cast<int>(LogLevel::error) == LM_ERROR);

namespace {

// The format with "%m" put in. ACE takes small codes for those of the C library, where 5 is
// another error than Windows'.
std::string withErrorText(const char* format, DWORD error) {
    std::string result("@%t@");
    for (const char* at = format; *at != '\0'; ++at) {
        if (at[0] == '%' && at[1] == 'm') {
            for (const char c : errorText(error)) {
                result += c == '%' ? "%%" : std::string(1, c);
            }
            ++at;
            continue;
        }
        result += *at;
        if (at[0] == '%' && at[1] == '%') {
            result += *++at;
        }
    }
    return result;
}

}  // namespace

void log_detail::write(LogLevel level, const char* format, ...) {
    LastErrorGuard keep;
    startAce();
    const std::string prefixed = withErrorText(format, keep.error());
    ACE_Log_Msg* record = ACE_Log_Msg::instance();
    record->conditional_set(nullptr, 0, 0, 0);
    va_list arguments;
    va_start(arguments, format);
    record->log(prefixed.c_str(), static_cast<ACE_Log_Priority>(level), arguments);
    va_end(arguments);
}

void log_detail::setLastError(unsigned long code) {
    SetLastError(code);
}

FunctionTrace::FunctionTrace(const char* function, const char* file) : function_(function) {
    log(LogLevel::trace, "enter %C (%C)\n", function, file);
}

FunctionTrace::~FunctionTrace() {
    log(LogLevel::trace, "leave %C\n", function_);
}

void startAce() {
    static std::once_flag once;
    std::call_once(once, [] { ACE::init(); });
}

void muteLog() {
    startAce();
    ACE_Log_Msg::instance()->clr_flags(ACE_Log_Msg::STDERR);
}

}  // namespace dorvo
