#include "data/jobchoice.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/text.h"
#include "jobdef/restorejobdefinition.h"
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
    for (const char* name : {"docs", "doc", ""}) {  // docs: alice's or bob's?
        EXPECT_THROW(findJob(jobs_, name), AgentError) << name;
    }
    EXPECT_EQ(freeName(jobs_, L"Docs"), L"Docs (3)");
    EXPECT_EQ(freeName(jobs_, L"doc"), L"doc");
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

using Change = std::function<void(RestoreJobDefinition&)>;

std::unique_ptr<RestoreJobDefinition> restoreJob(const char* id, const Change& change) {
    auto job = std::make_unique<RestoreJobDefinition>(id, L"name", "alice");
    job->setOrigin("PC", "backup", "run1");
    job->setSource({L"C:\\a", L"C:\\b"});
    job->setTarget(L"D:\\copy\\", L"");
    change(*job);
    return job;
}

const std::vector<std::wstring> others = {L"c:\\B", L"C:\\a"};

TEST(RestoreJobs, OnlyRunAndRuleMayDifferForOneJobToServeTwoRestores) {
    struct Row {
        const char* name;
        Change change;  // of the job there is
        bool found;     // when it is idle
        bool foundBusy;
    };
    const Row rows[] = {
        {"same", [](auto&) {}, true, true},
        {"order and case", [](auto& job) { job.setSource(others); }, true, true},
        {"run", [](auto& job) { job.setOrigin("PC", "backup", "run2"); }, true, false},
        {"rule", [](auto& job) { job.setConflict(2); }, true, false},
        {"backup job", [](auto& job) { job.setOrigin("PC", "other", "run1"); }, false, false},
        {"machine", [](auto& job) { job.setOrigin("PC2", "backup", "run1"); }, false, false},
        {"paths", [](auto& job) { job.setSource({L"C:\\a"}); }, false, false},
        {"target", [](auto& job) { job.setTarget(L"", L""); }, false, false},
        {"prefix", [](auto& job) { job.setTarget(L"D:\\copy\\", L"C:"); }, false, false},
        {"place", [](auto& job) { job.useLocalStorage(L"E:\\x"); }, false, false},
    };
    for (const Row& row : rows) {
        JobList jobs;
        jobs.push_back(std::make_unique<BackupJobDefinition>("0", L"b", "alice"));
        jobs.push_back(restoreJob("1", row.change));
        const auto wanted = restoreJob("2", [](auto&) {});
        for (const bool busy : {false, true}) {
            const auto* const found =
                findRestore(jobs, *wanted, [&](const std::string&) { return busy; });
            EXPECT_EQ(found != nullptr, busy ? row.foundBusy : row.found) << row.name << busy;
        }
    }
}

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST(NewJobName, IsRefusedWhereItWouldMislead) {
    JobList jobs;
    jobs.push_back(std::make_unique<BackupJobDefinition>("4f-ID", L"docs", "bob"));
    jobs.push_back(std::make_unique<RestoreJobDefinition>("5", L"restore", "alice"));
    const struct {
        std::wstring name;
        const char* says;  // null: it may be
    } rows[] = {
        {L"Doc\u00FCments 2026 (old)", nullptr},
        {std::wstring(255, L'x'), nullptr},
        {std::wstring(10'000, L'x'), "at most 255 characters, not 10000"},
        {L" \t", "blank"},
        {L"\u3000\u00A0", "blank"},
        {L"a\nb", "control characters in it: 'a?b'"},
        {L"a\u009Bb", "control characters"},
        {L"4F-id", "'4F-id' is the id of the job 'docs'"},
        {L"DOCS", "a job 'docs' of the user 'bob'"},
        {L"restore", "a restore job 'restore'"},
    };
    for (const auto& row : rows) {
        std::string said;
        try {
            requireNewName(jobs, row.name);
        } catch (const AgentError& error) {
            said = error.what();
        }
        EXPECT_EQ(said.empty(), row.says == nullptr) << toUtf8(row.name) << said;
        EXPECT_THAT(said, HasSubstr(row.says == nullptr ? "" : row.says));
    }
}

TEST(JobChanges, AreSaidALineEach) {
    BackupJobDefinition known("1", L"docs", "alice");
    known.setSource({L"C:\\a", L"C:\\b"});
    BackupJobDefinition changed = known;
    changed.setSource({L"C:\\B", L"c:\\A"});
    EXPECT_THAT(changesOf(known, changed), IsEmpty());

    changed.setSource({L"C:\\b", L"D:\\c"});
    changed.setFilter(1, {L"txt", L"doc"});
    changed.setCompress(false);
    changed.useLocalStorage(L"E:\\safe");
    EXPECT_THAT(
        changesOf(known, changed),
        ElementsAre("The job 'docs' no longer backs up C:\\a.",
                    "The job 'docs' now backs up D:\\c.",
                    "The job 'docs' now takes only files with the extensions txt, doc, no longer "
                    "all files.",
                    "The job 'docs' no longer compresses files.",
                    "The job 'docs' now keeps its backups in E:\\safe, no longer at the server."));
}

}  // namespace
}  // namespace dorvo::agent
