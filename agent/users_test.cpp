#include "users.h"

#include <gtest/gtest.h>

#include "agenterror.h"

namespace dorvo::agent {
namespace {

int refusal(const std::string& asked, const std::vector<std::string>& loggedIn) {
    try {
        chooseUser(asked, loggedIn);
        return exitDone;
    } catch (const AgentError& error) {
        return error.code();
    }
}

TEST(ChooseUser, TakesTheOnlyOneOrTheOneAskedFor) {
    EXPECT_EQ(chooseUser("", {"alice"}), "alice");
    EXPECT_EQ(chooseUser("bob", {"alice", "bob"}), "bob");
    EXPECT_EQ(refusal("", {}), exitFailed);
    EXPECT_EQ(refusal("alice", {}), exitFailed);
    EXPECT_EQ(refusal("Alice", {"alice"}), exitFailed);
    EXPECT_EQ(refusal("", {"alice", "bob"}), exitUsage);
}

}  // namespace
}  // namespace dorvo::agent
