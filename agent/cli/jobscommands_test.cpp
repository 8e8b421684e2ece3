#include <gmock/gmock.h>

#include <fstream>

#include "base/files.h"
#include "base/paths.h"
#include "base/text.h"
#include "cli/commands.h"
#include "data/jobstore.h"
#include "text/agenterror.h"
#include "text/faketerminal.h"

namespace dorvo::agent {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* jobId = "11111111-2222-3333-4444-555555555555";

TEST(UnreadJobs, AreListedWithTheReason) {
    std::wstring directory;
    ASSERT_TRUE(jobDirectory(jobId, directory) && createDirectories(directory));
    std::vector<UnreadJob> unread;
    EXPECT_THAT(loadJobs(&unread), IsEmpty());
    EXPECT_THAT(unread, IsEmpty()) << "one that is just being made";
    std::string later = BackupJobDefinition(jobId, L"docs", "alice").text();
    later.replace(later.find("\"web\""), 5, "\"tape\"");
    const std::pair<std::string, const char*> rows[] = {
        {later, "of a later version"},
        {"{\"id\":", "is damaged"},
        {BackupJobDefinition("another", L"docs", "alice").text(), "another id"},
    };
    for (const auto& [definition, why] : rows) {
        std::ofstream(toUtf8(directory + L"\\def"), std::ios::binary) << definition;
        try {
            findJob(loadJobs(), jobId);
            ADD_FAILURE();
        } catch (const AgentError& error) {
            EXPECT_THAT(error.what(), HasSubstr(why));
        }
        FakeTerminal terminal;
        jobsCommand()->run(terminal);
        EXPECT_THAT(terminal.lines, ElementsAre(AllOf(HasSubstr("unreadable"), HasSubstr(jobId))));
        EXPECT_THAT(terminal.warnings, ElementsAre(HasSubstr(why)));
    }
    rm_rf(directory, true);
}

}  // namespace
}  // namespace dorvo::agent
