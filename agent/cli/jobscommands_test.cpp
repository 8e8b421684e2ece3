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

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* jobId = "11111111-2222-3333-4444-555555555555";

// A job directory whose definition the test writes.
class UnreadJobs : public testing::Test {
protected:
    UnreadJobs() {
        jobDirectory(jobId, directory_);
        EXPECT_TRUE(createDirectories(directory_));
    }
    ~UnreadJobs() override { rm_rf(directory_, true); }

    void define(const std::string& text) const {
        std::ofstream(toUtf8(directory_ + L"\\def"), std::ios::binary) << text;
    }

    std::wstring directory_;
    FakeTerminal terminal_;
};

TEST_F(UnreadJobs, AreListedWithTheReason) {
    std::string later = BackupJobDefinition(jobId, L"docs", "alice").text();
    later.replace(later.find("\"web\""), 5, "\"tape\"");
    const struct {
        const char* name;
        std::string definition;
        const char* why;
    } table[] = {
        {"of a later version", later, "of a later version"},
        {"damaged", "{\"id\":", "is damaged"},
        {"a copy", BackupJobDefinition("another", L"docs", "alice").text(), "another id"},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.name);
        define(row.definition);
        std::vector<UnreadJob> unread;
        EXPECT_THAT(loadJobs(&unread), IsEmpty());
        ASSERT_EQ(unread.size(), 1u);
        EXPECT_EQ(unread[0].id, jobId);
        EXPECT_THAT(unread[0].why, HasSubstr(row.why));
        try {
            findJob({}, jobId);
            ADD_FAILURE();
        } catch (const AgentError& error) {
            EXPECT_THAT(error.what(), HasSubstr(row.why));
        }
        FakeTerminal terminal;
        jobsCommand()->run(terminal);
        EXPECT_THAT(terminal.lines, ElementsAre(HasSubstr("unreadable")));
        EXPECT_THAT(terminal.warnings, ElementsAre(HasSubstr(row.why)));
    }
}

TEST_F(UnreadJobs, AreNoneWhileADirectoryIsBeingMade) {
    std::vector<UnreadJob> unread;
    EXPECT_THAT(loadJobs(&unread), IsEmpty());
    EXPECT_THAT(unread, IsEmpty());
}

}  // namespace
}  // namespace dorvo::agent
