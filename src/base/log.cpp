#include "base/log.h"

#include <ace/ACE.h>
#include <ace/Init_ACE.h>
#include <ace/Object_Manager.h>

#include <cstdarg>
#include <mutex>
#include <string>

#include "base/last_error.h"

namespace dorvo {
namespace {

void write(LogLevel level, const char* format, va_list arguments) {
    LastErrorGuard keep;
    startAce();
    const std::string prefixed = std::string("@%t@") + format;
    SetLastError(keep.error());
    ACE_Log_Msg* record = ACE_Log_Msg::instance();
    SetLastError(keep.error());
    record->conditional_set(nullptr, 0, 0, static_cast<int>(keep.error()));
    record->log(prefixed.c_str(), static_cast<ACE_Log_Priority>(level), arguments);
}

}  // namespace

void log(LogLevel level, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    write(level, format, arguments);
    va_end(arguments);
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
