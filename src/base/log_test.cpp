#include "base/log.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>
#include <thread>

#include "base/last_error.h"
#include "support/fails_with.h"
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

// Windows' own, for codes that the C library has too, whatever the text looks like.
TEST(Log, WritesTheTextOfTheLastErrorForM) {
    ASSERT_NE(errorText(ERROR_BAD_EXE_FORMAT).find("%1"), std::string::npos);
    for (const DWORD error :
         {DWORD{ERROR_FILE_NOT_FOUND}, DWORD{ERROR_ACCESS_DENIED}, DWORD{ERROR_BAD_EXE_FORMAT}}) {
        test::LogCapture capture;
        SetLastError(error);
        log(LogLevel::error, "{%s} 100%% %m, 50%%more: %d.\n", "%m", 7);
        EXPECT_EQ(capture.lines().at(0).text, "{%m} 100% " + errorText(error) + ", 50%more: 7.\n");
    }
}

TEST(Log, AFailureIsLoggedAndLeavesItsCode) {
    test::LogCapture capture;
    SetLastError(ERROR_FILE_NOT_FOUND);
    EXPECT_FAILS(ERROR_FILE_NOT_FOUND, logFailed("Failed to open {%s}, %d.\n", "a", 2));
    EXPECT_FAILS(ERROR_INVALID_DATA, logFailed(ERROR_INVALID_DATA, "It is damaged, %m.\n"));
    const std::string texts[] = {"Failed to open {a}, 2.\n",
                                 "It is damaged, " + errorText(ERROR_INVALID_DATA) + ".\n"};
    const auto lines = capture.lines();
    ASSERT_EQ(lines.size(), 2U);
    for (size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(lines[i].level, LogLevel::error);
        EXPECT_EQ(lines[i].text, texts[i]);
    }
}

}  // namespace
}  // namespace dorvo
