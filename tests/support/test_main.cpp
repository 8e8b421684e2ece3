#include <gtest/gtest.h>

#ifdef _WIN32
#include <windows.h>

#include <dbghelp.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace {

// A crash must never end with exit code 0 because a debugger caught it.
LONG WINAPI reportCrash(EXCEPTION_POINTERS* exception) {
    static_cast<void>(std::fprintf(stderr, "crash: exception 0x%08lx at %p\n",
                                   exception->ExceptionRecord->ExceptionCode,
                                   exception->ExceptionRecord->ExceptionAddress));
    void* frames[32];
    const USHORT count = CaptureStackBackTrace(0, 32, frames, nullptr);
    for (USHORT i = 0; i < count; ++i) {
        static_cast<void>(std::fprintf(stderr, "  %p\n", frames[i]));
    }
    static_cast<void>(
        std::fprintf(stderr, "  module base %p\n", static_cast<void*>(GetModuleHandleW(nullptr))));
    static_cast<void>(std::fflush(stderr));
    TerminateProcess(GetCurrentProcess(), 99);
    return EXCEPTION_EXECUTE_HANDLER;
}

}  // namespace
#endif

int main(int argc, char** argv) {
#ifdef _WIN32
    SetUnhandledExceptionFilter(reportCrash);
    // Wine hands the Unix zone name to the C runtime, which reads it as something else and then
    // disagrees with GetLocalTime.
    _putenv("TZ=");
    _tzset();
#endif
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
