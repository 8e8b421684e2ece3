#include "engine/dataowner.h"

#include <gtest/gtest.h>

#include <future>

#include "base/paths.h"
#include "support/signal.h"

namespace dorvo::agent {
namespace {

using test::Signal;
using Role = DataOwner::Role;

std::wstring ownerFile() {
    std::wstring directory;
    dataDirectory(directory);
    createDirectories(directory);
    return directory + L"\\owner";
}

FileHandle open(DWORD access, DWORD creation) {
    return FileHandle(CreateFileW(ownerFile().c_str(), access,
                                  FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                  creation, FILE_ATTRIBUTE_NORMAL, nullptr));
}

TEST(DataOwner, IsOneProcessThatSaysWhoItIs) {
    {
        const DataOwner first(Role::resident, {});
        EXPECT_FALSE(open(GENERIC_WRITE, OPEN_EXISTING)) << "shared for writing";
        ASSERT_TRUE(DataOwner::holder());
        EXPECT_EQ(DataOwner::holder()->process, GetCurrentProcessId());
        EXPECT_TRUE(DataOwner::holder()->resident);
        try {
            const DataOwner second(Role::command, {});
            ADD_FAILURE() << "owned twice";
        } catch (const DataOwned& owned) {
            EXPECT_EQ(owned.holder(), DataOwner::holder());
            EXPECT_NE(std::string(owned.what()).find(holderText(*owned.holder())),
                      std::string::npos);
        }
    }
    EXPECT_FALSE(DataOwner::holder());
    EXPECT_FALSE(open(GENERIC_READ, OPEN_EXISTING));
}

TEST(DataOwner, IsKeptOutByNothingThatOthersLeaveOrRead) {
    // As a power cut leaves it; and somebody reads it all the while.
    open(GENERIC_WRITE, CREATE_ALWAYS);
    const FileHandle reader = open(GENERIC_READ, OPEN_EXISTING);
    ASSERT_TRUE(reader);
    EXPECT_NO_THROW(DataOwner(Role::command, {}));
}

TEST(DataOwner, IsWaitedForUntilItGoesOrIsGivenUp) {
    auto first = std::make_unique<DataOwner>(Role::command, DataOwner::Patience{});
    Signal waits;
    Signal giveUp;
    const auto wait = [&] {
        const DataOwner next(Role::command, {.giveUp = giveUp.handle(),
                                             .ms = INFINITE,
                                             .waits = [&](const auto&) { waits.set(); }});
    };
    auto given = std::async(std::launch::async, wait);
    ASSERT_TRUE(waits.wait());
    giveUp.set();
    EXPECT_THROW(given.get(), DataOwned);
    waits.reset();
    giveUp.reset();
    auto gone = std::async(std::launch::async, wait);
    ASSERT_TRUE(waits.wait());
    first.reset();
    EXPECT_NO_THROW(gone.get());
}

}  // namespace
}  // namespace dorvo::agent
