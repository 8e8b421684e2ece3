#include "data/restorejobs.h"

#include <gtest/gtest.h>

#include "text/agenterror.h"

namespace dorvo::agent {
namespace {

using Change = std::function<void(RestoreJobDefinition&)>;

std::unique_ptr<RestoreJobDefinition> restoreJob(const char* id, const Change& change) {
    auto job = std::make_unique<RestoreJobDefinition>(id, L"name", "alice");
    job->setOrigin("PC", "backup", "run1");
    job->setSource({L"C:\\a", L"C:\\b"});
    job->setTarget(L"D:\\copy\\", L"");
    change(*job);
    return job;
}

TEST(RestoreJobs, OnlyRunAndRuleMayDifferForOneJobToServeTwoRestores) {
    struct Row {
        const char* name;
        Change change;  // of the job there is
        bool found;     // when it is idle
        bool foundBusy;
    };
    const Row rows[] = {
        {"same", [](auto&) {}, true, true},
        {"order and case",
         [](auto& job) {
             job.setSource({L"c:\\B", L"C:\\a"});
         },
         true, true},
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

}  // namespace
}  // namespace dorvo::agent
