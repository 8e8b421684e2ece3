#include "job/dropteller.h"

#include <gtest/gtest.h>

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
    // A backup job's folder.
    static std::wstring makeJob(const std::string& id) {
        const std::wstring folder = dataPath(L"\\job\\") + toWide(id);
        createDirectories(folder);
        EXPECT_TRUE(BackupJobDefinition(id, L"name", "user of " + id).save(folder + L"\\def"));
        return folder;
    }
    // Tells until `count` were told of, each answered in turn, and returns whose they were.
    std::vector<std::string> tell(std::deque<DWORD> answers) {
        std::vector<std::string> told;
        Signal all;
        const size_t count = answers.size();
        DropTeller teller([&](const JobDefinition& job, const PendingDrop& drop, HANDLE stop) {
            EXPECT_NE(stop, nullptr);
            told.push_back(job.id() + ", " + job.user() + ", " + drop.instanceId.substr(35) +
                           toUtf8(drop.location));
            const DWORD answer = answers.front();
            answers.pop_front();
            if (told.size() == count) {
                all.set();
            }
            SetLastError(answer);
            return answer == ERROR_SUCCESS;
        });
        teller.wake();
        EXPECT_TRUE(count == 0 || all.wait());
        teller.stop();
        return told;
    }
};

TEST_F(DropTellerTest, TellsWhatJobsAndRemovedJobsHaveLeft) {
    const std::wstring live = makeJob("live");
    PendingDrops("live").add({first, L"E:\\backups"});
    const std::wstring gone = makeJob("gone");
    for (const char* id : {first, second}) {
        PendingDrops("gone").add({id, L""});
    }
    PendingDrops("gone").handOn(BackupJobDefinition("gone", L"name", "user of gone"));
    ASSERT_TRUE(rm_rf(gone, true));
    const std::wstring kept = dataPath(L"\\drops\\gone");
    const LogCapture quiet;

    EXPECT_EQ(tell({0, 0, WSAECONNRESET}),
              (std::vector<std::string>{"live, user of live, 1E:\\backups", "gone, user of gone, 1",
                                        "gone, user of gone, 2"}));
    EXPECT_FALSE(exists(live + L"\\drops"));
    EXPECT_TRUE(exists(live + L"\\def")) << "which is the job's";
    EXPECT_FALSE(exists(kept + L"\\" + toWide(first)));
    EXPECT_TRUE(exists(kept + L"\\" + toWide(second)));
    // The next process, whom the service tells that it has completed the run.
    EXPECT_EQ(tell({0x20010199}), std::vector<std::string>{"gone, user of gone, 2"});
    EXPECT_FALSE(exists(kept));
    EXPECT_TRUE(tell({}).empty());
}

}  // namespace
}  // namespace dorvo
