#include "engine/dataowner.h"

#include <gtest/gtest.h>

#include <thread>

#include "agenterror.h"

namespace dorvo::agent {
namespace {

// A mutex belongs to a thread, so another thread stands for another process.
bool otherCanOwn() {
    bool owned = false;
    std::thread([&] {
        try {
            const DataOwner owner;
            owned = true;
        } catch (const AgentError& error) {
            EXPECT_EQ(error.code(), exitFailed);
        }
    }).join();
    return owned;
}

TEST(DataOwner, IsOneAtATime) {
    {
        const DataOwner owner;
        EXPECT_FALSE(otherCanOwn());
    }
    EXPECT_TRUE(otherCanOwn());
}

TEST(DataOwner, AnOwnerThatDiedIsNoOwner) {
    std::thread([] {
        // Left without its destructor, as a killed process leaves it.
        alignas(DataOwner) static unsigned char place[sizeof(DataOwner)];
        new (place) DataOwner;
    }).join();
    const DataOwner owner;
}

TEST(DataOwner, NamesTheMutexByTheDirectoryWhateverItsCase) {
    EXPECT_EQ(DataOwner::mutexName(L"C:\\Data"), DataOwner::mutexName(L"c:\\DATA"));
    EXPECT_NE(DataOwner::mutexName(L"C:\\Data"), DataOwner::mutexName(L"C:\\Data2"));
}

}  // namespace
}  // namespace dorvo::agent
