#include "resident/residenthealth.h"

#include <gtest/gtest.h>

namespace dorvo::agent {
namespace {

TEST(ResidentHealth, SaysWhatKeepsTheServiceFromRunningJobs) {
    const Holder own{.process = 7, .resident = true, .command = "agent service run"};
    const Holder console{.process = 8, .resident = true, .command = "agent run"};
    const Holder command{.process = 9, .resident = false, .command = "agent start docs"};
    struct Row {
        const char* name;
        ResidentSigns signs;
        const char* trouble;  // part of it; "" for none
    };
    const Row rows[] = {
        {"it answers", {7, own, true}, ""},
        {"and its file cannot be read", {7, {}, true}, ""},
        {"it has only just begun", {{}, own, false}, "not ready"},
        {"it hangs", {{}, own, true}, "does not answer"},
        {"behind a command", {{}, command, false}, "process 9 (agent start docs)"},
        {"behind a resident in a console", {8, console, true}, "Ctrl+C"},
        {"behind what cannot be told", {{}, {}, false}, "log"},
    };
    for (const Row& row : rows) {
        const std::string trouble = residentTrouble(7, row.signs);
        EXPECT_EQ(trouble.empty(), std::string(row.trouble).empty()) << row.name << trouble;
        EXPECT_NE(trouble.find(row.trouble), std::string::npos) << row.name << trouble;
    }
}

}  // namespace
}  // namespace dorvo::agent
