// An activity record as a damaged disk may hold it: every question has a harmless answer.
#include <algorithm>
#include <cstring>

#include "input.h"
#include "record/jobactivity.h"

using namespace dorvo;

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    JobActivity record{};
    std::memcpy(static_cast<void*>(&record), data, std::min(size, sizeof(record)));
    fuzz::require(record.progress() >= 0 && record.progress() <= 100);
    fuzz::require(record.fileProgress() >= 0 && record.fileProgress() <= 100);
    static_cast<void>(record.speed() + record.AverageSpeed() + record.remainTime());
    static_cast<void>(record.recognised() || record.hasInstance());
    const std::wstring path = record.currentFilePath();
    fuzz::require(path.size() * sizeof(char16_t) <= JobActivity::recordSize);
    const uint32_t end = record.endError;
    record.currentFilePath(path + L"\\" + path);
    fuzz::require(record.endError == end);
    fuzz::require(record.currentFilePath().size() * sizeof(char16_t) <= JobActivity::recordSize);
    record.reset(1, size % 2 == 0);
    fuzz::require(record.recognised() && record.currentFilePath().empty());
    return 0;
}
