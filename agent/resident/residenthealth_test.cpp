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
        {"it answers", {.answers = 7, .holder = own, .announced = true}, ""},
        {"and its file cannot be read", {.answers = 7, .holder = {}, .announced = true}, ""},
        {"it has only just begun", {.answers = {}, .holder = own, .announced = false}, "not ready"},
        {"it hangs", {.answers = {}, .holder = own, .announced = true}, "does not answer"},
        {"behind a command",
         {.answers = {}, .holder = command, .announced = false},
         "process 9 (agent start docs)"},
        {"behind a resident in a console",
         {.answers = 8, .holder = console, .announced = true},
         "Ctrl+C"},
        {"behind what cannot be told", {.answers = {}, .holder = {}, .announced = false}, "log"},
    };
    for (const Row& row : rows) {
        const std::string trouble = residentTrouble(7, row.signs);
        EXPECT_EQ(trouble.empty(), std::string(row.trouble).empty()) << row.name << trouble;
        EXPECT_NE(trouble.find(row.trouble), std::string::npos) << row.name << trouble;
    }
}

}  // namespace
}  // namespace dorvo::agent
