#include "base/log.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>
#include <thread>

#include "base/last_error.h"
#include "support/log_capture.h"

namespace dorvo {
namespace {

// What a call compiles to: `format` with arguments of these types.
template <class... Arguments>
constexpr bool fits(std::string_view format) {
    const std::array<LogKind, sizeof...(Arguments)> kinds = {logKind<Arguments>()...};
    return fitsLog(format, kinds.data(), kinds.size());
}

static_assert(fits<>("100%% of {%}, %m.\n"));
static_assert(fits<std::string, const char*, char[3]>("%s %s %C"));
static_assert(fits<int, DWORD, HRESULT, uint16_t, LogLevel>("%d %u %d %u %d"));
static_assert(fits<uint64_t, int64_t, size_t>("%Q %Q %Q"));
static_assert(fits<std::wstring, const wchar_t*>("%W %W"));
static_assert(!fits<>("%d"), "too few");
static_assert(!fits<int, int>("%d\n"), "too many");
static_assert(!fits<int>("%Q") && !fits<uint64_t>("%d"), "of another width");
static_assert(!fits<int>("%s") && !fits<std::string>("%d") && !fits<std::wstring>("%s"));
static_assert(!fits<std::string>("%W") && !fits<bool>("%d") && !fits<void*>("%s"));
static_assert(!fits<std::string_view>("%s") && !fits<std::nullptr_t>("%s"), "may end nowhere");
static_assert(!fits<int>("%x") && !fits<int>("%5d") && !fits<>("100%"), "no directive");

TEST(Log, FormatsNumbersAndStringsAndKeepsTheLastError) {
    test::LogCapture capture;
    SetLastError(ERROR_ACCESS_DENIED);
    log(LogLevel::error, "Job {%s} at {%Q} \"%W\" code = %d.\n", std::string("j1"),
        5'000'000'000ULL, L"ä", DWORD{7});
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
    // A text that has a directive's look, and none behind a percent sign.
    SetLastError(ERROR_BAD_EXE_FORMAT);
    log(LogLevel::error, "%m, 50%%more: %d.\n", 7);
    const auto lines = capture.lines();
    ASSERT_EQ(lines.size(), 4U);
    ASSERT_NE(errorText(ERROR_BAD_EXE_FORMAT).find("%1"), std::string::npos);
    EXPECT_EQ(lines[3].text, errorText(ERROR_BAD_EXE_FORMAT) + ", 50%more: 7.\n");
    // Windows' own, for codes that the C library has too.
    EXPECT_EQ(lines[0].text, errorText(ERROR_FILE_NOT_FOUND) + "|\n");
    EXPECT_EQ(lines[1].text, errorText(ERROR_ACCESS_DENIED) + "|\n");
    EXPECT_EQ(lines[2].text, "{%m} 100% " + errorText(ERROR_ACCESS_DENIED) + ", 7.\n");
}

TEST(Log, AFailureIsLoggedAndLeavesItsCode) {
    test::LogCapture capture;
    SetLastError(ERROR_FILE_NOT_FOUND);
    EXPECT_FALSE(logFailed("Failed to open {%s}, %d, %m.\n", std::string("a"), GetLastError()));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
    EXPECT_FALSE(logFailed(ERROR_INVALID_DATA, "{%s} is damaged, %m.\n", "b"));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_DATA});
    const auto lines = capture.lines();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].level, LogLevel::error);
    EXPECT_EQ(lines[0].text, "Failed to open {a}, 2, " + errorText(ERROR_FILE_NOT_FOUND) + ".\n");
    EXPECT_EQ(lines[1].level, LogLevel::error);
    EXPECT_EQ(lines[1].text, "{b} is damaged, " + errorText(ERROR_INVALID_DATA) + ".\n");
}

}  // namespace
}  // namespace dorvo
