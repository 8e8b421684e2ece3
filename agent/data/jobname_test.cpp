#include "data/jobname.h"

#include <gmock/gmock.h>

#include "base/text.h"
#include "jobdef/restorejobdefinition.h"
#include "text/agenterror.h"

namespace dorvo::agent {
namespace {

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
