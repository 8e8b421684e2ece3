#include "cli/instancequery.h"

#include <gtest/gtest.h>

#include "text/agenterror.h"

namespace dorvo::agent {
namespace {

StoredInstance run(const char* machine, const char* job, const char* id, const char* state,
                   const char* end = "2026-01-02 03:04:05") {
    StoredInstance instance;
    instance.endTime = end;
    instance.machine = machine;
    instance.jobDefinitionId = job;
    instance.jobInstanceId = id;
    instance.state = state;
    return instance;
}

const std::vector<StoredInstance> oneJob = {run("PC", "j", "aa11", "completed"),
                                            run("PC", "j", "aa12", "completed"),
                                            run("PC", "j", "bb13", "running")};
const std::vector<StoredInstance> anotherMachine = {run("OLD", "j", "cc14", "completed"),
                                                    run("OLD", "j", "aa1", "cancelled")};
const std::vector<StoredInstance> damaged = {
    run("PC", "j", "ff16", "damaged", "2026-01-02 03:04:05")};
const std::vector<StoredInstance> damagedBefore = {
    run("PC", "j", "ff17", "damaged", "2026-01-02 03:04:04"), run("OLD", "j", "ff18", "damaged"),
    run("PC", "k", "ff19", "damaged")};
const std::vector<StoredInstance> anotherJob = {run("PC", "k", "dd15", "completed")};

std::vector<StoredInstance> together(std::vector<StoredInstance> all,
                                     const std::vector<StoredInstance>& more) {
    all.insert(all.end(), more.begin(), more.end());
    return all;
}

TEST(ChooseInstance, TakesAnIdItsBeginningOrTheLatest) {
    struct Row {
        const char* name;
        std::vector<StoredInstance> runs;
        const char* asked;
        std::string expected;  // an id, or part of a refusal
    };
    for (const Row& row : {
             Row{"whole id", oneJob, "aa12", "aa12"},
             Row{"other case", oneJob, "AA11", "aa11"},
             Row{"beginning", together(oneJob, anotherMachine), "c", "cc14"},
             Row{"beginning of two", oneJob, "aa", "Several runs"},
             Row{"whole id that others begin with", together(oneJob, anotherMachine), "aa1",
                 "state is 'cancelled'"},
             Row{"not complete", oneJob, "bb", "state is 'running'"},
             Row{"unknown", oneJob, "aa123", "'list'"},
             Row{"latest", oneJob, "latest", "aa12"},
             Row{"latest here", together(oneJob, anotherMachine), "Latest", "aa12"},
             Row{"latest elsewhere", anotherMachine, "latest", "cc14"},
             Row{"latest may be damaged", together(oneJob, damaged), "latest", "ff16"},
             Row{"latest is newer than what is damaged", together(oneJob, damagedBefore), "latest",
                 "aa12"},
             Row{"damaged", together(oneJob, damaged), "ff", "state is 'damaged'"},
             Row{"latest of two jobs", together(oneJob, anotherJob), "latest", "--job"},
             Row{"latest of none", {run("PC", "j", "ee", "running")}, "latest", "'list'"},
         }) {
        std::string answer;
        try {
            answer = chooseInstance(row.runs, row.asked, "PC", "list").jobInstanceId;
        } catch (const AgentError& refusal) {
            answer = refusal.what();
            EXPECT_NE(answer.find(row.expected), std::string::npos) << row.name << ": " << answer;
            continue;
        }
        EXPECT_EQ(answer, row.expected) << row.name;
    }
}

}  // namespace
}  // namespace dorvo::agent
