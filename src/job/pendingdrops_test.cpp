// Which runs are told to which storage, and how long they are kept in mind.
#include "job/pendingdrops.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>

#include "base/local_time.h"
#include "job/jobdirectories.h"
#include "job/transferfailure.h"
#include "jobdef/backupjobdefinition.h"
#include "record/jobactivityhandle.h"
#include "settings/storefile.h"
#include "support/held_file.h"
#include "support/log_capture.h"
#include "support/store_test.h"

namespace dorvo {
namespace {

using test::Held;
using test::holdFile;
using test::Meanwhile;

constexpr char first[] = "11111111-1111-1111-1111-111111111111";
constexpr char second[] = "22222222-2222-2222-2222-222222222222";
constexpr char third[] = "33333333-3333-3333-3333-333333333333";

class PendingDropsTest : public test::StoreTest {
protected:
    // What a storage is told that answers with that error, 0: that it has dropped the run.
    std::string told(DWORD error) const { return told(drops_, error); }
    static std::string told(const PendingDrops& drops, DWORD error) {
        std::string text;
        drops.tell([&](const PendingDrop& run) {
            text += run.instanceId.substr(0, 1) + "@" + toUtf8(run.location) + run.server + " ";
            SetLastError(error);
            return error == ERROR_SUCCESS;
        });
        return text;
    }
    std::wstring noteOf(const char* id) const { return folder_ + L"\\" + toWide(id); }

    const test::LogCapture quiet_;
    const PendingDrops drops_{"j1"};
    const std::wstring folder_ = dataPath(L"\\job\\j1\\drops");
};

TEST_F(PendingDropsTest, AreToldToTheirPlaceUntilItAnswers) {
    for (const DWORD error : {DWORD{ERROR_SUCCESS}, DWORD{ERROR_INVALID_STATE}}) {
        SCOPED_TRACE(error);
        EXPECT_TRUE(drops_.note({first, L"E:\\b\u00fc"}));
        EXPECT_TRUE(drops_.note({second, L"", "server:80"}));
        EXPECT_EQ(drops_.note({second, L"", "other:80"})->server, "server:80");
        write(folder_ + L"\\" + toWide(third) + L".new", "half of");
        const std::string both = "1@E:\\b\u00fc 2@server:80 ";
        EXPECT_EQ(told(WSAESTALE), both) << "still away";
        EXPECT_EQ(told(error), both);
        EXPECT_EQ(told(ERROR_SUCCESS), "");
        EXPECT_TRUE(isMissing(folder_)) << "with what a kill has left";
    }
}

// Anything between here and the service may have said it.
TEST_F(PendingDropsTest, ARefusalOfTheServiceIsBelievedAfterFifteenHours) {
    struct Row {
        const char* name;
        DWORD error;
        double hours;  // from one to the next
        bool counts;
    };
    const Row rows[] = {
        {"400", 0x20010190, 1.01, true},
        {"403", 0x20010193, 1.01, true},
        {"404", 0x20010194, 1.01, true},
        {"409", 0x20010199, 100, true},
        {"a clock that was ahead", 0x20010194, -100, true},
        {"too soon", 0x20010194, 0.99, false},
        {"no login", 0x20010191, 2, false},
        {"away", WSAECONNRESET, 2, false},
    };
    const auto age = [&](double hours) {
        const FileHandle file(CreateFileW(noteOf(first).c_str(), FILE_WRITE_ATTRIBUTES, 0, nullptr,
                                          OPEN_EXISTING, 0, nullptr));
        const FILETIME then =
            toFileTime(utcTimeNow() - static_cast<uint64_t>(static_cast<int64_t>(
                                          hours * 3600 * static_cast<double>(ticksPerSecond))));
        EXPECT_TRUE(SetFileTime(file.get(), nullptr, nullptr, &then));
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        rm_rf(folder_, true);
        drops_.note({first, L"", "server:80"});
        for (unsigned times = 1; times < endTries + 1; ++times) {
            age(row.hours);
            EXPECT_EQ(told(row.error), "1@server:80 ") << times;
        }
        EXPECT_EQ(told(WSAESTALE), row.counts ? "" : "1@server:80 ");
    }
    // Each server has its own, and none is told twice of what came in between.
    rm_rf(folder_, true);
    drops_.note({first, L"", ""});
    age(2);
    EXPECT_EQ(told(0x20010194), "1@ ");
    EXPECT_EQ(drops_.note({first, L""})->refusals, 1u);
    EXPECT_TRUE(PendingDrops::bindTo("new:80", Bind::unbound));
    EXPECT_EQ(drops_.note({first, L""})->refusals, 0u);
    EXPECT_EQ(told(WSAESTALE), "1@new:80 ");
    age(2);
    drops_.tell([](const PendingDrop&) {
        EXPECT_TRUE(PendingDrops::bindTo("newer:80", Bind::all));
        SetLastError(0x20010194);
        return false;
    });
    EXPECT_EQ(told(WSAESTALE), "1@newer:80 ") << "not overwritten by who was told meanwhile";
}

// Whose note is there from before its storage hears of it.
TEST_F(PendingDropsTest, TheRunThatGoesOnIsNotTold) {
    struct Row {
        JobState state;
        const char* told;  // where the second is the run on record
        bool kept;
    };
    using enum JobState;
    const Row rows[] = {
        {idle, "1@ 2@ ", true},    {starting, "1@ ", true},     {running, "1@ ", true},
        {completing, "1@ ", true}, {pausing, "1@ ", true},      {paused, "1@ ", true},
        {completed, "1@ ", false}, {canceling, "1@ ", true},    {cancelled, "1@ 2@ ", true},
        {error, "1@ 2@ ", true},   {JobState{77}, "1@ ", true},
    };
    createDirectories(dataPath(L"\\job\\j1"));
    for (const Row& row : rows) {
        SCOPED_TRACE(static_cast<int>(row.state));
        drops_.note({first, L""});
        drops_.note({second, L""});
        {
            JobActivityHandle record;
            ASSERT_TRUE(record.open("j1", true));
            record->state = static_cast<int32_t>(row.state);
            record->instanceId.fill(0x22);
            EXPECT_EQ(told(WSAECONNRESET), row.told) << "while the job has it open";
            EXPECT_EQ(fileExists(noteOf(second)), row.kept);
        }
    }
    // Nobody knows then.
    drops_.note({second, L""});
    {
        const Held held(dataPath(L"\\job\\j1\\info"));
        EXPECT_EQ(told(ERROR_SUCCESS), "");
    }
    write(dataPath(L"\\job\\j1\\info"), "damaged");
    EXPECT_EQ(told(ERROR_SUCCESS), "");
    DeleteFileW(dataPath(L"\\job\\j1\\info").c_str());
    EXPECT_EQ(told(ERROR_SUCCESS), "1@ 2@ ");
}

// Told to the web service, a run of a folder would be forgotten, and its data stay there for good.
TEST_F(PendingDropsTest, OneThatCannotBeReadIsToldLater) {
    drops_.note({first, L"E:\\b"});
    write(folder_ + L"\\no instance", "E:\\b");
    {
        const Held held(noteOf(first));
        EXPECT_EQ(told(ERROR_SUCCESS), "");
        EXPECT_FALSE(drops_.note({first, L"F:\\b"}));
        EXPECT_EQ(GetLastError(), DWORD{ERROR_SHARING_VIOLATION});
        EXPECT_FALSE(drops_.forget(first));
    }
    EXPECT_EQ(told(ERROR_SUCCESS), "1@E:\\b ");
    EXPECT_TRUE(fileExists(folder_ + L"\\no instance"));
}

// Of an older version, and on the way to an address at which the server is not any more.
TEST_F(PendingDropsTest, AreBoundToAServerAsLoginsAre) {
    drops_.note({first, L"", "old:80"});
    drops_.note({second, L""});
    drops_.note({third, L"E:\\b"});
    EXPECT_EQ(told(WSAESTALE), "1@old:80 2@ 3@E:\\b ");
    EXPECT_TRUE(PendingDrops::bindTo("set:80", Bind::unbound));
    EXPECT_EQ(told(WSAESTALE), "1@old:80 2@set:80 3@E:\\b ");
    {
        const Held held(noteOf(first));
        EXPECT_FALSE(PendingDrops::bindTo("new:80", Bind::all)) << "and the others are";
    }
    EXPECT_EQ(told(WSAESTALE), "1@old:80 2@new:80 3@E:\\b ");
    EXPECT_TRUE(drops_.handOn(BackupJobDefinition("j1", L"name", "alice")));
    EXPECT_TRUE(PendingDrops::bindTo("newer:80", Bind::all));
    rm_rf(dataPath(L"\\job\\j1"), true);
    const auto left = PendingDrops::all();
    ASSERT_EQ(left.size(), 1u);
    EXPECT_EQ(told(left[0], WSAESTALE), "1@newer:80 2@newer:80 3@E:\\b ");
}

TEST_F(PendingDropsTest, OneThatCannotBeHandedOnCostsNoOther) {
    const BackupJobDefinition job("j1", L"name", "alice");
    const std::wstring to = dataPath(L"\\drops\\j1");
    const auto handOn = [&](bool letGo) {
        rm_rf(to, true);
        for (const char* id : {first, second, third}) {
            drops_.note({id, L""});
        }
        FileHandle held = holdFile(noteOf(first));
        // The second was told and forgotten when its turn comes.
        const Meanwhile told([&] {
            DeleteFileW(noteOf(second).c_str());
            if (letGo) {
                held.reset();
            }
        });
        return drops_.handOn(job);
    };
    for (const bool letGo : {true, false}) {
        EXPECT_EQ(handOn(letGo), letGo);
        EXPECT_EQ(fileExists(to + L"\\" + toWide(first)), letGo);
        EXPECT_FALSE(fileExists(to + L"\\" + toWide(second)));
        EXPECT_TRUE(fileExists(to + L"\\" + toWide(third)));
        EXPECT_TRUE(fileExists(to + L"\\def"));
    }
}

TEST_F(PendingDropsTest, WhoLooksForThemKeepsNoRemovedJobsDirectory) {
    write(folder_ + L"\\no note", "");
    FileHandle held = holdFile(folder_ + L"\\no note");
    const Meanwhile read([&] { held.reset(); });
    EXPECT_TRUE(removeJobDirectory("j1"));
    EXPECT_EQ(GetFileAttributesW(dataPath(L"\\job\\j1").c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST_F(PendingDropsTest, OneThatCannotBeMovedIsKept) {
    drops_.note({first, L""});
    ASSERT_TRUE(createDirectories(dataPath(L"\\drops\\j1\\") + toWide(first)));
    const Meanwhile nothing;
    EXPECT_FALSE(drops_.handOn(BackupJobDefinition("j1", L"name", "alice")));
    EXPECT_TRUE(fileExists(noteOf(first)));
}

// On a full disk, say: they are the only ones there are.
TEST_F(PendingDropsTest, ThoseThatCannotBeHandedOnStayWithWhoseTheyAre) {
    const BackupJobDefinition job("j1", L"name", "alice");
    const std::wstring home = dataPath(L"\\job\\j1");
    const Meanwhile nothing;
    for (const bool held : {false, true}) {
        SCOPED_TRACE(held);
        rm_rf(home, true);
        write(dataPath(L"\\drops"), "no room");
        createDirectories(home);
        ASSERT_TRUE(job.save(home + L"\\def"));
        write(home + L"\\info", "");
        write(home + L"\\tmp\\package", "bytes");
        drops_.note({first, L"E:\\b"});
        drops_.note({second, L""});
        {
            const FileHandle definition = held ? holdFile(home + L"\\def") : FileHandle();
            EXPECT_FALSE(drops_.handOn(job));
            EXPECT_TRUE(removeJobDirectory("j1"));
        }
        EXPECT_FALSE(fileExists(home + L"\\info"));
        EXPECT_FALSE(fileExists(home + L"\\tmp"));
        EXPECT_EQ(fileExists(home + L"\\def"), held) << "the job comes back then";
        EXPECT_EQ(drops_.stay(), !held);
        if (!held) {
            ASSERT_TRUE(job.save(home + L"\\def"));
            EXPECT_FALSE(drops_.stay()) << "they are a job's again";
            DeleteFileW((home + L"\\def").c_str());
        }
        const auto left = PendingDrops::all();
        ASSERT_EQ(left.size(), 1u);
        const auto whose = readDefinition(left[0].home());
        ASSERT_TRUE(whose);
        EXPECT_EQ(whose->user(), "alice");
        EXPECT_EQ(told(left[0], ERROR_SUCCESS), "1@E:\\b 2@ ");
        EXPECT_TRUE(isMissing(folder_));
        EXPECT_TRUE(removeJobDirectory("j1"));
        EXPECT_TRUE(isMissing(home));
        DeleteFileW(dataPath(L"\\drops").c_str());
    }
}

TEST_F(PendingDropsTest, OfNoJobAreHandedOnByItsOwnDefinitionOnly) {
    const std::wstring definition = dataPath(L"\\job\\j1\\def");
    const std::wstring to = dataPath(L"\\drops\\j1\\") + toWide(first);
    EXPECT_TRUE(drops_.handOn());
    drops_.note({first, L""});
    EXPECT_FALSE(drops_.handOn());
    ASSERT_TRUE(BackupJobDefinition("copied", L"name", "alice").save(definition));
    EXPECT_TRUE(drops_.handOn());
    EXPECT_FALSE(fileExists(to)) << "it may be the run that goes on of another";
    EXPECT_FALSE(drops_.any());
    drops_.note({first, L""});
    ASSERT_TRUE(BackupJobDefinition("J1", L"name", "alice").save(definition));
    EXPECT_TRUE(drops_.handOn());
    EXPECT_TRUE(fileExists(to));
}

}  // namespace
}  // namespace dorvo
