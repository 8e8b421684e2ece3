#include "base/log.h"

#include <gtest/gtest.h>

#include <thread>

#include "support/log_capture.h"

namespace dorvo {
namespace {

TEST(Log, FormatsNumbersStringsAndTheLastErrorAndKeepsIt) {
    test::LogCapture capture;
    SetLastError(ERROR_ACCESS_DENIED);
    log(LogLevel::error, "Job {%s} at {%Q} \"%W\" code = %d.\n", "j1", 5'000'000'000ULL, L"ä", 7);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_ACCESS_DENIED});
    std::thread([] { log(LogLevel::debug, "from another thread\n"); }).join();
    ASSERT_EQ(capture.lines().size(), 2U);
    EXPECT_EQ(capture.lines()[0].level, LogLevel::error);
    EXPECT_EQ(capture.lines()[0].text.substr(0, 24), "Job {j1} at {5000000000}");
    EXPECT_TRUE(capture.has(LogLevel::debug, "from another thread\n"));
}

TEST(Log, WritesTheTextOfTheLastErrorForM) {
    test::LogCapture capture;
    SetLastError(ERROR_FILE_NOT_FOUND);
    log(LogLevel::error, "%m|\n");
    SetLastError(ERROR_ACCESS_DENIED);
    log(LogLevel::error, "%m|\n");
    const auto lines = capture.lines();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_GT(lines[0].text.size(), 3U);
    EXPECT_NE(lines[0].text, lines[1].text);
}

TEST(Log, LeavesOutWhatABraceAfterAPercentSignStandsFor) {
    test::LogCapture capture;
    log(LogLevel::debug, "File {%} is increment, start to encrypt/compress.\n");
    EXPECT_EQ(capture.lines().size(), 1U);
}

}  // namespace
}  // namespace dorvo
