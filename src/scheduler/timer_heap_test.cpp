#include "scheduler/timer_heap.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace dorvo {
namespace {

TEST(TimerHeap, SaysWhetherATimerIsTheEarliest) {
    Timer_Heap heap;
    EXPECT_EQ(heap.remove(1), Timer_Heap::Removed::none);
    EXPECT_FALSE(heap.push({1, UINT64_MAX, nullptr}));
    EXPECT_EQ(heap.remove(1), Timer_Heap::Removed::inner) << "nobody is behind it";
    EXPECT_TRUE(heap.push({2, 50, nullptr}));
    EXPECT_FALSE(heap.push({3, 50, nullptr})) << "an equal deadline overtakes nobody";
    EXPECT_EQ(heap.front().id, 2);
    EXPECT_TRUE(heap.push({4, 49, nullptr}));
    EXPECT_EQ(heap.front().id, 4);
}

TEST(TimerHeap, GivesTimersInOrderWhateverIsRemoved) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    for (int round = 0; round < 200; ++round) {
        Timer_Heap heap;
        std::vector<std::pair<uint64_t, int32_t>> model;
        for (int32_t id = 1; id <= 20; ++id) {
            model.emplace_back(random() % 1000, id);
            heap.push({id, model.back().first, nullptr});
        }
        for (int removals = 0; removals < 8; ++removals) {
            const auto victim = model.begin() + static_cast<ptrdiff_t>(random() % model.size());
            const bool front = heap.front().id == victim->second;
            EXPECT_EQ(heap.remove(victim->second),
                      front ? Timer_Heap::Removed::front : Timer_Heap::Removed::inner);
            model.erase(victim);
        }
        std::vector<std::pair<uint64_t, int32_t>> given;
        while (!heap.empty()) {
            const Timer_Entry entry = heap.pop();
            EXPECT_TRUE(given.empty() || given.back().first <= entry.deadline);
            given.emplace_back(entry.deadline, entry.id);
        }
        EXPECT_THAT(given, testing::UnorderedElementsAreArray(model));
    }
}

TEST(TimerHeap, WaitsForTheDeadline) {
    constexpr uint64_t ms = 10'000;
    const std::tuple<const char*, uint64_t, uint64_t, uint32_t> rows[] = {
        {"due now", 500, 500, 1000},
        {"overdue", 400, 500, 1000},
        {"less than a millisecond", 500 + ms - 1, 500, 1000},
        {"one millisecond", 500 + ms, 500, 1},
        {"cut off", 500 + 3 * ms - 1, 500, 2},
        {"the longest", uint64_t{0xFFFFFFFE} * ms, 0, 0xFFFFFFFE},
        {"never without limit", uint64_t{0xFFFFFFFF} * ms, 0, 0xFFFFFFFE},
    };
    for (const auto& [name, deadline, now, wait] : rows) {
        EXPECT_EQ(Timer_Heap::wait_ms(deadline, now), wait) << name;
    }
}

}  // namespace
}  // namespace dorvo
