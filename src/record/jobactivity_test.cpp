#include "record/jobactivity.h"

#include <gtest/gtest.h>
#ifdef _WIN32
#include <windows.h>

#include "support/store_watch.h"
#endif

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace dorvo {
namespace {

std::unique_ptr<JobActivity> makeRecord() {
    auto record = std::make_unique<JobActivity>();
    record->reset(1, true);
    return record;
}

// The example of docs/formats/activity-record.md.
std::vector<uint8_t> example() {
    std::vector<uint8_t> bytes = {
        0x00, 0x00, 0x01, 0x00, 0xb8, 0x00, 0x00, 0x00,  // 0: version 1.0, base size 184
        0x07, 0x00, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00,  // 8: completed, 2 accepted blocks
        0x00, 0x80, 0x3e, 0xd5, 0xde, 0xb1, 0x9d, 0x01,  // 16: last run
        0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,  // 24: no next run
        0x03, 0x00, 0x00, 0x00, 0x05, 0x00, 0x00, 0x00,  // 32: running, pausing is pending
        0x01, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00,  // 40: by the user, resumed
        0x33, 0x22, 0x11, 0x00, 0x55, 0x44, 0x77, 0x66,  // 48: 00112233-4455-6677-
        0x88, 0x99, 0xaa, 0xbb, 0xcc, 0xdd, 0xee, 0xff,  // 56: 8899-aabbccddeeff
        0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,  // 64: start time
        0x00, 0x10, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,  // 72: position 4096
        0x80, 0x96, 0x98, 0x00, 0x00, 0x00, 0x00, 0x00,  // 80: one second used
        0xff, 0xff, 0xff, 0xff, 0x0a, 0x00, 0x00, 0x00,  // 88: volume -1, 10 files
        0x00, 0x00, 0x10, 0x00, 0x00, 0x00, 0x00, 0x00,  // 96: 1 MiB in all
        0x03, 0x00, 0x00, 0x00, 0x05, 0x00, 0x00, 0x00,  // 104: file 3, item 5
        0x00, 0x00, 0x04, 0x00, 0x00, 0x00, 0x00, 0x00,  // 112: 256 KiB done
        0x00, 0x00, 0x02, 0x00, 0x00, 0x00, 0x00, 0x00,  // 120: 128 KiB on the wire
        0x00, 0x00, 0x08, 0x00, 0x00, 0x00, 0x00, 0x00,  // 128: 512 KiB transferred
        0x02, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00,  // 136: 2 directories, 1 failed item
        0x00, 0x02, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,  // 144: 512 bytes unchanged
        0x00, 0x00, 0x04, 0x00, 0x00, 0x00, 0x00, 0x00,  // 152: at 256 KiB
        0x00, 0x00, 0x08, 0x00, 0x00, 0x00, 0x00, 0x00,  // 160: of 512 KiB
        0x10, 0x00, 0x08, 0x00, 0x00, 0x00, 0x00, 0x00,  // 168: package of 512 KiB and 16
        0xc7, 0x04, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00,  // 176: 1223, transfer
        'C',  0x00, ':',  0x00, '\\', 0x00, 0xe4, 0x00,  // 184: C:\a-umlaut
    };
    bytes.resize(JobActivity::recordSize);
    return bytes;
}

#ifdef _WIN32
// A process may die in the middle of a reset: a head that is right is never away, and no field of
// the former run stands beside its state when others are gone.
TEST(JobActivity, AResetStoresItsStateFirstAndLeavesItsHeadAlone) {
    test::StoreWatch watch;
    auto& record = *static_cast<JobActivity*>(watch.page());
    for (const bool full : {false, true}) {
        record = *makeRecord();
        record.instanceId.fill(7);
        watch.begin();
        record.reset(9, full);
        const std::vector<size_t> stores = watch.end();
        ASSERT_FALSE(stores.empty());
        EXPECT_EQ(stores.front(), offsetof(JobActivity, state));
        EXPECT_GE(*std::min_element(stores.begin(), stores.end()),
                  offsetof(JobActivity, lastRunState));
        EXPECT_EQ(record.state, 9);
        EXPECT_FALSE(record.hasInstance());
    }
}
#endif

TEST(JobActivity, IsReadAsTheExampleSays) {
    JobActivity record;
    std::memcpy(static_cast<void*>(&record), example().data(), sizeof(record));
    EXPECT_TRUE(record.recognised());
    EXPECT_EQ(record.lastRunState, 7);
    EXPECT_EQ(record.acceptedBlocks, 2U);
    EXPECT_EQ(record.pendingState, 5);
    EXPECT_TRUE(record.hasInstance());
    EXPECT_EQ(record.failedItems, 1U);
    EXPECT_EQ(record.endError, 1223U);
    EXPECT_EQ(record.speed(), 524288U);
    EXPECT_EQ(record.currentFilePath(), L"C:\\\u00e4");
}

TEST(JobActivity, ResetsToNothingButItsState) {
    auto record = std::make_unique<JobActivity>();
    std::memset(static_cast<void*>(record.get()), 0xAB, sizeof(*record));
    record->lastRunState = 7;
    record->lastRunTime = 1234;
    record->nextRunTime = 5678;
    auto kept = std::make_unique<JobActivity>(*record);

    std::vector<uint8_t> expected(JobActivity::recordSize);
    expected[2] = 1;
    expected[4] = 184;
    expected[32] = 9;
    record->reset(9, true);
    EXPECT_EQ(std::memcmp(record.get(), expected.data(), expected.size()), 0);

    kept->reset(9, false);
    EXPECT_EQ(std::exchange(kept->lastRunState, 0), 7);
    EXPECT_EQ(std::exchange(kept->lastRunTime, 0), 1234U);
    EXPECT_EQ(std::exchange(kept->nextRunTime, 0), 5678U);
    EXPECT_EQ(std::memcmp(kept.get(), expected.data(), expected.size()), 0);
}

TEST(JobActivity, Computes) {
    struct Row {
        const char* name;
        uint64_t total, done, offset, size, transferred, used;
        int progress, fileProgress;
        uint64_t speed, average, remain;
    };
    constexpr uint64_t second = 10'000'000;
    constexpr uint64_t most = UINT64_MAX;
    constexpr Row rows[] = {
        {"nothing", 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
        {"no total", 0, 50, 50, 100, 0, 0, 0, 50, 0, 50, 0},
        {"half", 200, 50, 50, 200, 80, 2 * second, 50, 25, 40, 25, 4},
        {"below a second", 1000, 500, 0, 0, 7, second - 1, 50, 0, 7, 500, 1},
        {"nearly two seconds", 1000, 500, 0, 0, 7, 2 * second - 1, 50, 0, 7, 500, 1},
        {"more than all", 100, 90, 90, 10, 0, 0, 100, 100, 0, 90, 0},
        {"nothing done yet", 1000, 0, 0, 0, 0, 5 * second, 0, 0, 0, 0, 1000},
        {"sums beyond 64 bits", most, most, most, most, most, 0, 100, 100, most, most, 0},
        {"products beyond 64 bits", most, most / 2, 0, 0, 0, 0, 50, 0, 0, most / 2, 1},
        {"almost all", most, most - 1, 0, 0, 0, 0, 99, 0, 0, most - 1, 0},
    };
    for (const Row& row : rows) {
        auto record = makeRecord();
        record->totalSize = row.total;
        record->doneSize = row.done;
        record->fileOffset = row.offset;
        record->fileSize = row.size;
        record->transferred = row.transferred;
        record->usedTime = row.used;
        EXPECT_EQ(record->progress(), row.progress) << row.name;
        EXPECT_EQ(record->fileProgress(), row.fileProgress) << row.name;
        EXPECT_EQ(record->speed(), row.speed) << row.name;
        EXPECT_EQ(record->AverageSpeed(), row.average) << row.name;
        EXPECT_EQ(record->remainTime(), row.remain) << row.name;
    }
}

TEST(JobActivity, KeepsThePathInsideTheRecord) {
    auto record = makeRecord();
    const std::wstring longest(JobActivity::longestPath, L'x');
    record->currentFilePath(longest + L"yz");
    EXPECT_EQ(record->currentFilePath(), longest);
    record->currentFilePath(L"short");
    EXPECT_EQ(record->currentFilePath(), L"short");
    const std::wstring cutInPair = longest.substr(1) + wchar_t{0xD83D} + wchar_t{0xDE00};
    record->currentFilePath(cutInPair);
    EXPECT_EQ(record->currentFilePath(), longest.substr(1)) << "no half of a character";

    std::memset(static_cast<void*>(record->path.data()), 0x41, sizeof(record->path));
    EXPECT_EQ(record->currentFilePath().size(), JobActivity::longestPath + 1) << "no NUL";
}

TEST(JobActivity, PutsThePathWhereTheBaseSizeSays) {
    auto record = makeRecord();
    record->baseSize = 201;
    record->currentFilePath(L"later version");
    EXPECT_EQ(record->currentFilePath(), L"later version");
    record->baseSize = 184;
    EXPECT_EQ(record->currentFilePath(), L"");
    for (const uint32_t damaged : {0U, 183U, 4095U, 4096U, 0xFFFFFFFFU}) {
        record->reset(3, true);
        record->baseSize = damaged;
        const JobActivity before = *record;
        record->currentFilePath(L"C:\\");
        EXPECT_EQ(record->currentFilePath(), L"") << damaged;
        EXPECT_EQ(std::memcmp(record.get(), &before, damaged == 4095 ? 4095 : 4096), 0) << damaged;
    }
}

}  // namespace
}  // namespace dorvo
