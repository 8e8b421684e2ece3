#include "engine/dataowner.h"

#include <gtest/gtest.h>

#include <future>
#include <vector>

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

TEST(DataOwner, IsToldOfEachThatHoldsTheDirectoryMeanwhile) {
    const FileHandle file(CreateFileW(ownerFile().c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                      CREATE_ALWAYS, FILE_FLAG_DELETE_ON_CLOSE, nullptr));
    Signal giveUp;
    std::vector<uint32_t> told;
    const auto waits = [&](const std::optional<Holder>& holder) {
        if (told.push_back(holder ? holder->process : 0); told.size() == 2) {
            giveUp.set();
        }
        const std::string another = R"({"process":2,"resident":true,"command":"b"})";
        DWORD written = 0;
        WriteFile(file.get(), another.data(), static_cast<DWORD>(another.size()), &written,
                  nullptr);
    };
    EXPECT_THROW(
        DataOwner(Role::command, {.giveUp = giveUp.handle(), .ms = INFINITE, .waits = waits}),
        DataOwned);
    EXPECT_EQ(told, (std::vector<uint32_t>{0, 2}));
}

// A folder in the file's place is denied, as a file is that is just being deleted.
TEST(DataOwner, BearsBeingDeniedForAWhile) {
    ASSERT_TRUE(createDirectories(ownerFile()));
    Signal giveUp;
    giveUp.set();
    EXPECT_THROW(DataOwner(Role::command, {.giveUp = giveUp.handle(), .waits = {}}), DataOwned);
    try {
        const DataOwner none(Role::command, {.deletionMs = 0, .waits = {}});
        ADD_FAILURE();
    } catch (const DataOwned& error) {
        ADD_FAILURE() << error.what();
    } catch (const AgentError&) {
    }
    RemoveDirectoryW(ownerFile().c_str());
}

}  // namespace
}  // namespace dorvo::agent
