#include "base/handle.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <thread>
#include <vector>

#include "base/singleton.h"

namespace dorvo {
namespace {

std::vector<int> closed;

struct CountingPolicy {
    using value_type = int;
    static value_type invalid() { return -1; }
    static void close(value_type value) {
        closed.push_back(value);
        SetLastError(ERROR_INVALID_HANDLE);
    }
};
using Counted = UniqueHandle<CountingPolicy>;

TEST(UniqueHandle, ClosesEachValueOnceAndKeepsTheLastError) {
    closed.clear();
    SetLastError(ERROR_ACCESS_DENIED);
    {
        Counted first(1);
        Counted second(std::move(first));
        EXPECT_FALSE(first);  // NOLINT(bugprone-use-after-move): an owner is empty then
        second.reset(2);
        EXPECT_EQ(closed, std::vector{1});
        second = Counted(3);
        EXPECT_EQ(closed, (std::vector{1, 2}));
        Counted released(4);
        EXPECT_EQ(released.release(), 4);
        second.reset(second.get());
        Counted empty;
    }
    EXPECT_EQ(closed, (std::vector{1, 2, 3}));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_ACCESS_DENIED});
}

std::atomic<int> constructions{0};

struct Slow {
    Slow() {
        ++constructions;
        SwitchToThread();
    }
};

TEST(Singleton, IsMadeOnceHoweverManyThreadsAsk) {
    {
        std::array<std::jthread, 8> threads;
        for (std::jthread& thread : threads) {
            thread = std::jthread([] { EXPECT_NE(ATL::CComSingleton<Slow>::instance(), nullptr); });
        }
    }
    EXPECT_EQ(constructions, 1);
}

}  // namespace
}  // namespace dorvo
