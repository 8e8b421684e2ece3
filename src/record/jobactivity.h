// A job's live and persisted status: the record of 4096 bytes in its file "info".
//
// The layout is fixed (docs/formats/activity-record.md): little-endian, mapped as it stands by the
// job's process, and copied for readers in others. There is no lock: every field is stored plainly,
// and a change of state is followed by JobActivityHandle::sync(). What a file holds need not make
// sense; every accessor gives something harmless then.
//
// Times are FILETIMEs as 64-bit counts of 100 nanoseconds, sizes are bytes.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

#include "base/api.h"
#include "base/job_state.h"

namespace dorvo {

// `awaited`: no file's state; the service works on the run itself.
enum class CurrentFileState : uint32_t { none = 0, encoding = 1, transfer = 2, awaited = 3 };

struct DORVO_JOB_API JobActivity {
    static constexpr size_t recordSize = 4096;
    static constexpr uint32_t fixedSize = 184;
    static constexpr uint32_t version1 = 0x00010000;  // the first 32 bits of version 1.0
    static constexpr size_t longestPath = (recordSize - fixedSize) / 2 - 1;  // UTF-16 units

    uint16_t minorVersion;
    uint16_t majorVersion;
    uint32_t baseSize;  // of the fixed part, where the current path begins
    int32_t lastRunState;
    uint32_t acceptedBlocks;  // of the current item: those whose acceptance the run has recorded
    uint64_t lastRunTime;
    uint64_t nextRunTime;
    int32_t state;         // a JobState, or what a damaged file holds
    int32_t pendingState;  // 5: a pause is pending, 8: a stop, 10: the end in error, 0: none
    uint32_t pausedManually;
    uint32_t resuming;  // the run continues a paused one
    std::array<uint8_t, 16> instanceId;
    uint64_t startTime;       // of the run, local
    uint64_t sourcePosition;  // where the current item begins in the source list
    uint64_t usedTime;        // in 100 nanoseconds
    int32_t volumeIndex;      // of a backup; of a restore the files that were kept as they were
    uint32_t fileCount;
    uint64_t totalSize;
    uint32_t fileIndex;
    uint32_t itemNumber;
    uint64_t doneSize;  // of the items already finished
    uint64_t wireSize;  // sent or received in this run
    uint64_t transferred;
    uint32_t directoryCount;
    uint32_t failedItems;
    uint64_t unchangedSize;  // left out of the run as unchanged
    uint64_t fileOffset;
    uint64_t fileSize;
    uint64_t packageSize;  // of the current item's package
    uint32_t endError;     // the code the run ended with, 0 when it ended well
    uint32_t currentFileState;
    std::array<char16_t, longestPath + 1> path;  // use currentFilePath

    // Zeroes the record and gives it the state. Unless `full`, the last run's state and time and
    // the next run's time stay. Whenever the process dies meanwhile, the record has version, size
    // and one of both states.
    void reset(int32_t newState, bool full);
    // True when this program knows the layout.
    bool recognised() const { return firstWord() == version1 || baseSize == fixedSize; }
    // True for what a file is that was made and never written.
    bool isBlank() const;

    // Percent of the run and of the current file, 0 to 100.
    int progress() const;
    int fileProgress() const;
    // Bytes a second: of the current speed's count, and of the finished items.
    uint64_t speed() const;
    uint64_t AverageSpeed() const;
    // An estimate in seconds, 0 when nothing is left.
    uint64_t remainTime() const;

    // UTF-16 units, without the NUL. Empty when the record names no sensible place for it.
    std::wstring currentFilePath() const;
    // Cuts the path off where it does not fit. Nothing is written without a sensible place.
    void currentFilePath(std::wstring_view newPath);

    bool hasInstance() const;

    // Of a restore: see volumeIndex.
    uint32_t keptFiles() const { return volumeIndex < 0 ? 0 : static_cast<uint32_t>(volumeIndex); }
    void keptFiles(uint32_t count) { volumeIndex = static_cast<int32_t>(count); }

private:
    uint32_t firstWord() const { return uint32_t{majorVersion} << 16 | minorVersion; }
    uint64_t usedSeconds() const;
};

static_assert(std::is_trivially_copyable_v<JobActivity>);
static_assert(std::is_standard_layout_v<JobActivity>);
static_assert(sizeof(JobActivity) == JobActivity::recordSize);
static_assert(offsetof(JobActivity, minorVersion) == 0);
static_assert(offsetof(JobActivity, majorVersion) == 2);
static_assert(offsetof(JobActivity, baseSize) == 4);
static_assert(offsetof(JobActivity, lastRunState) == 8);
static_assert(offsetof(JobActivity, acceptedBlocks) == 12);
static_assert(offsetof(JobActivity, lastRunTime) == 16);
static_assert(offsetof(JobActivity, nextRunTime) == 24);
static_assert(offsetof(JobActivity, state) == 32);
static_assert(offsetof(JobActivity, pendingState) == 36);
static_assert(offsetof(JobActivity, pausedManually) == 40);
static_assert(offsetof(JobActivity, resuming) == 44);
static_assert(offsetof(JobActivity, instanceId) == 48);
static_assert(offsetof(JobActivity, startTime) == 64);
static_assert(offsetof(JobActivity, sourcePosition) == 72);
static_assert(offsetof(JobActivity, usedTime) == 80);
static_assert(offsetof(JobActivity, volumeIndex) == 88);
static_assert(offsetof(JobActivity, fileCount) == 92);
static_assert(offsetof(JobActivity, totalSize) == 96);
static_assert(offsetof(JobActivity, fileIndex) == 104);
static_assert(offsetof(JobActivity, itemNumber) == 108);
static_assert(offsetof(JobActivity, doneSize) == 112);
static_assert(offsetof(JobActivity, wireSize) == 120);
static_assert(offsetof(JobActivity, transferred) == 128);
static_assert(offsetof(JobActivity, directoryCount) == 136);
static_assert(offsetof(JobActivity, failedItems) == 140);
static_assert(offsetof(JobActivity, unchangedSize) == 144);
static_assert(offsetof(JobActivity, fileOffset) == 152);
static_assert(offsetof(JobActivity, fileSize) == 160);
static_assert(offsetof(JobActivity, packageSize) == 168);
static_assert(offsetof(JobActivity, endError) == 176);
static_assert(offsetof(JobActivity, currentFileState) == 180);
static_assert(offsetof(JobActivity, path) == JobActivity::fixedSize);

}  // namespace dorvo
