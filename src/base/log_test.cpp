#include "base/log.h"

#include <gtest/gtest.h>

#include <thread>

#include "base/error_text.h"
#include "support/log_capture.h"

namespace dorvo {
namespace {

TEST(Log, FormatsNumbersAndStringsAndKeepsTheLastError) {
    test::LogCapture capture;
    SetLastError(ERROR_ACCESS_DENIED);
    log(LogLevel::error, "Job {%s} at {%Q} \"%W\" code = %d.\n", "j1", 5'000'000'000ULL, L"ä", 7);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_ACCESS_DENIED});
    std::thread([] { log(LogLevel::debug, "File {%} is increment.\n"); }).join();
    ASSERT_EQ(capture.lines().size(), 2U) << "of any thread, and whatever follows a percent sign";
    EXPECT_EQ(capture.lines()[0].level, LogLevel::error);
    EXPECT_EQ(capture.lines()[0].text.substr(0, 24), "Job {j1} at {5000000000}");
}

TEST(Log, WritesTheTextOfTheLastErrorForM) {
    test::LogCapture capture;
    SetLastError(ERROR_FILE_NOT_FOUND);
    log(LogLevel::error, "%m|\n");
    SetLastError(ERROR_ACCESS_DENIED);
    log(LogLevel::error, "%m|\n");
    SetLastError(ERROR_ACCESS_DENIED);
    log(LogLevel::error, "{%s} 100%% %m, %d.\n", "%m", 7);
    const auto lines = capture.lines();
    ASSERT_EQ(lines.size(), 3U);
    // Windows' own, for codes that the C library has too.
    EXPECT_EQ(lines[0].text, errorText(ERROR_FILE_NOT_FOUND) + "|\n");
    EXPECT_EQ(lines[1].text, errorText(ERROR_ACCESS_DENIED) + "|\n");
    EXPECT_EQ(lines[2].text, "{%m} 100% " + errorText(ERROR_ACCESS_DENIED) + ", 7.\n");
}

}  // namespace
}  // namespace dorvo
