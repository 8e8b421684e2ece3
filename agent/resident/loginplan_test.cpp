#include "resident/loginplan.h"

#include <gtest/gtest.h>

namespace dorvo::agent {
namespace {

using enum LoginPlan::Outcome;

constexpr LoginPlan::Rules threeTries = {.tries = 3, .againMs = 100};

TEST(LoginPlan, TriesAsOftenAsTheRulesSay) {
    struct Row {
        const char* name;
        std::vector<LoginPlan::Outcome> outcomes;
        int tries;  // how many of them are made
    };
    const Row rows[] = {
        {"the first works", {done}, 1},
        {"the last works", {failed, failed, done}, 3},
        {"none works", {failed, failed, failed, failed}, 3},
        {"a refusal ends it", {failed, refused, failed}, 2},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        LoginPlan plan;
        uint64_t now = 1000;
        int tries = 0;
        plan.need({"alice"}, now);
        while (const auto next = plan.next()) {
            EXPECT_TRUE(plan.due(*next - 1).empty());
            EXPECT_EQ(*next, now);
            ASSERT_EQ(plan.due(now), std::vector<std::string>{"alice"});
            const auto outcome = row.outcomes[static_cast<size_t>(tries++)];
            const bool last = plan.tried("alice", outcome, threeTries, now);
            EXPECT_EQ(last, !plan.next());
            now += 100;
            // Whatever happens meanwhile changes nothing of the plan.
            plan.need(outcome == done ? std::set<std::string>() : std::set<std::string>{"alice"},
                      now - 50);
        }
        EXPECT_EQ(tries, row.tries);
        plan.need({}, now);
        plan.need({"alice"}, now);
        EXPECT_EQ(plan.due(now).size(), 1U);
    }
}

TEST(LoginPlan, PlansEachUserApart) {
    LoginPlan plan;
    plan.need({"alice", "bob"}, 0);
    EXPECT_FALSE(plan.tried("alice", failed, threeTries, 0));
    plan.need({"alice", "bob", "carol"}, 10);
    EXPECT_EQ(plan.due(10), (std::vector<std::string>{"bob", "carol"}));
    plan.tried("bob", refused, threeTries, 10);
    plan.tried("carol", done, threeTries, 10);
    EXPECT_EQ(plan.next(), 100U);
}

}  // namespace
}  // namespace dorvo::agent
