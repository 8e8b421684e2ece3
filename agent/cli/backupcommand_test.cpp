#include "cli/backupcommand.h"

#include <gtest/gtest.h>

#include "text/agenterror.h"

namespace dorvo::agent {
namespace {

std::unique_ptr<JobDefinition> backup(const char* id, const wchar_t* name, const char* user,
                                      std::vector<std::wstring> source) {
    auto job = std::make_unique<BackupJobDefinition>(id, name, user);
    job->setSource(std::move(source));
    return job;
}

class Jobs : public testing::Test {
protected:
    Jobs() {
        jobs_.push_back(backup("1", L"docs", "alice", {L"C:\\a", L"C:\\b"}));
        jobs_.push_back(backup("2", L"docs (2)", "alice", {L"C:\\a"}));
        jobs_.push_back(backup("3", L"DOCS", "bob", {L"C:\\a"}));
        jobs_.push_back(backup("4", L"1", "bob", {L"D:\\"}));
        jobs_.back()->useLocalStorage(L"E:\\safe");
    }

    JobList jobs_;
};

TEST_F(Jobs, AreFoundByIdBeforeNameWithoutRegardToCase) {
    EXPECT_EQ(findJob(jobs_, "1").id(), "1");
    EXPECT_EQ(findJob(jobs_, "Docs (2)").id(), "2");
    EXPECT_THROW(findJob(jobs_, "docs"), AgentError);  // alice's or bob's?
    EXPECT_THROW(findJob(jobs_, "doc"), AgentError);
    EXPECT_THROW(findJob(jobs_, ""), AgentError);
}

TEST_F(Jobs, TheSamePathsOfAUserInOnePlaceAreTheSameJobInWhateverOrder) {
    struct Row {
        const char* user;
        std::vector<std::wstring> paths;
        const wchar_t* location;
        const char* id;  // null: none
    };
    for (const Row& row :
         {Row{"alice", {L"c:\\B", L"C:\\a"}, L"", "1"}, Row{"alice", {L"C:\\A"}, L"", "2"},
          Row{"bob", {L"C:\\a"}, L"", "3"}, Row{"alice", {L"C:\\b"}, L"", nullptr},
          Row{"carol", {L"C:\\a"}, L"", nullptr}, Row{"bob", {L"D:\\"}, L"", nullptr},
          Row{"bob", {L"D:\\"}, L"e:\\SAFE", "4"}}) {
        const auto* const found = findBackup(jobs_, row.user, row.paths, row.location);
        ASSERT_EQ(found != nullptr, row.id != nullptr) << row.user;
        EXPECT_TRUE(found == nullptr || found->id() == row.id);
    }
    EXPECT_EQ(findBackup(jobs_, "bob", std::wstring(L"docs")), jobs_[2].get());
}

TEST_F(Jobs, ANameThatIsTakenGetsANumber) {
    EXPECT_EQ(freeName(jobs_, L"Docs"), L"Docs (3)");
    EXPECT_EQ(freeName(jobs_, L"doc"), L"doc");
}

TEST(ReadExtensions, TakesTheFormsThatPeopleWriteAndRefusesNoPatterns) {
    EXPECT_EQ(readExtensions({"txt", ".doc", "*.tar.gz"}),
              (std::vector<std::wstring>{L"txt", L".doc", L"*.tar.gz"}));
    for (const char* text : {"", ".", "*.*", "a(b", "[x", "a)"}) {
        EXPECT_THROW(readExtensions({"txt", text}), AgentError) << text;
    }
}

}  // namespace
}  // namespace dorvo::agent
