#include "job/dropteller.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>

#include "jobdef/backupjobdefinition.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "support/signal.h"
#include "support/store_test.h"

namespace dorvo {
namespace {

using namespace test;

constexpr const char* first = "00000000-0000-0000-0000-000000000001";
constexpr const char* second = "00000000-0000-0000-0000-000000000002";

class DropTellerTest : public StoreTest {
protected:
    const LogCapture log_;
    // A backup job's folder.
    static std::wstring makeJob(const std::string& id) {
        std::wstring folder = dataPath(L"\\job\\") + toWide(id);
        createDirectories(folder);
        EXPECT_TRUE(BackupJobDefinition(id, L"name", "user of " + id).save(folder + L"\\def"));
        return folder;
    }
    // Wakes a teller that has each told of answered in turn, and returns whose they were when that
    // many were told.
    std::vector<std::string> tell(std::deque<DWORD> answers, DWORD againMs = DropTeller::hourMs) {
        std::vector<std::string> told;
        Signal all;
        const size_t count = answers.size();
        DropTeller teller(
            [&](const JobDefinition& job, const PendingDrop& drop, HANDLE stop) {
                EXPECT_NE(stop, nullptr);
                if (answers.empty()) {
                    SetLastError(WSAECONNRESET);
                    return false;  // of a pass that comes before the stop
                }
                told.push_back(job.id() + ", " + job.user() + ", " + drop.instanceId.substr(35) +
                               toUtf8(drop.location));
                const DWORD answer = answers.front();
                answers.pop_front();
                if (told.size() == count) {
                    all.set();
                }
                SetLastError(answer);
                return answer == ERROR_SUCCESS;
            },
            againMs);
        teller.wake();
        EXPECT_TRUE(count == 0 || all.wait());
        teller.stop();
        return told;
    }
};

TEST_F(DropTellerTest, TellsWhatJobsAndRemovedJobsHaveLeft) {
    const std::wstring live = makeJob("live");
    PendingDrops("live").note({first, L"E:\\backups"});
    const std::wstring gone = makeJob("gone");
    for (const char* id : {first, second}) {
        PendingDrops("gone").note({id, L""});
    }
    PendingDrops("gone").handOn(BackupJobDefinition("gone", L"name", "user of gone"));
    ASSERT_TRUE(rm_rf(gone, true));
    const std::wstring kept = dataPath(L"\\drops\\gone");

    EXPECT_EQ(tell({0, 0, WSAECONNRESET}),
              (std::vector<std::string>{"live, user of live, 1E:\\backups", "gone, user of gone, 1",
                                        "gone, user of gone, 2"}));
    EXPECT_FALSE(exists(live + L"\\drops"));
    EXPECT_TRUE(exists(live + L"\\def")) << "which is the job's";
    EXPECT_FALSE(exists(kept + L"\\" + toWide(first)));
    EXPECT_TRUE(exists(kept + L"\\" + toWide(second)));
    // The next process, whom the folder tells that it has completed the run.
    EXPECT_EQ(tell({ERROR_INVALID_STATE}), std::vector<std::string>{"gone, user of gone, 2"});
    EXPECT_FALSE(exists(kept));
    EXPECT_TRUE(tell({}).empty());
}

TEST_F(DropTellerTest, TellsAgainAfterATimeButWhatIsDamaged) {
    makeJob("job");
    for (const char* id : {first, second}) {
        PendingDrops("job").note({id, L""});
    }
    const std::wstring damaged = makeJob("other");
    PendingDrops("other").note({first, L""});
    write(damaged + L"\\def", "{\"id\": ");
    EXPECT_EQ(tell({ERROR_INVALID_DATA, WSAECONNRESET, WSAECONNRESET, 0}, 1),
              (std::vector<std::string>{"job, user of job, 1", "job, user of job, 2",
                                        "job, user of job, 2", "job, user of job, 2"}));
    const auto lines = log_.lines();
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const LogLine& line) {
                                return line.text.starts_with("Failed to read whose runs");
                            }),
              1);
    EXPECT_EQ(tell({0}), std::vector<std::string>{"job, user of job, 1"}) << "the next start";
}

// The run that a copied directory tells of may go on in the job's own.
TEST_F(DropTellerTest, TellsOfNoDirectoryButItsJobsOwn) {
    const std::wstring copy = makeJob("copy");
    ASSERT_TRUE(BackupJobDefinition("job", L"name", "user").save(copy + L"\\def"));
    PendingDrops("copy").note({first, L""});
    makeJob("last");
    PendingDrops("last").note({second, L""});
    EXPECT_EQ(tell({0}), std::vector<std::string>{"last, user of last, 2"});
    EXPECT_TRUE(PendingDrops("copy").any());
}

TEST_F(DropTellerTest, TellsNothingMoreOnceItIsStopped) {
    makeJob("job");
    makeJob("other");
    for (const char* id : {first, second}) {
        PendingDrops("job").note({id, L""});
        PendingDrops("other").note({id, L""});
    }
    unsigned told = 0;
    Signal telling;
    DropTeller teller([&](const JobDefinition&, const PendingDrop&, HANDLE stop) {
        ++told;
        teller.signalStop();
        EXPECT_EQ(WaitForSingleObject(stop, 0), DWORD{WAIT_OBJECT_0});
        telling.set();
        return true;
    });
    teller.wake();
    EXPECT_TRUE(telling.wait());
    teller.stop();
    EXPECT_EQ(told, 1u);
}

}  // namespace
}  // namespace dorvo
