#include "engine/accounts.h"

#include <gmock/gmock.h>

#include <functional>

#include "support/store_test.h"
#include "text/agenterror.h"
#include "text/singletons.h"

namespace dorvo::agent {
namespace {

using testing::HasSubstr;

class AccountsTest : public test::StoreTest {
protected:
    ~AccountsTest() override {
        DeleteFileW(besideProgram(L"options").c_str());
        DeleteFileW(dataPath(L"\\options").c_str());
        options() = OptionsImpl();
    }
};

// Nobody listens there: who was not told to stop hears that.
TEST_F(AccountsTest, WaitForTheServerUntilNobodyIsLeftToBeTold) {
    ASSERT_TRUE(options().setServerInfo("", "127.0.0.1", 1));
    Accounts accounts;
    bool gone = false;
    const GiveUp giveUp = [&] { return gone; };
    const auto said = [](const std::function<void()>& ask) {
        try {
            ask();
            return std::string();
        } catch (const AgentError& error) {
            return std::string(error.what());
        }
    };
    const auto login = [&] { return said([&] { accounts.login("alice", "p", giveUp); }); };
    const auto logout = [&] { return said([&] { accounts.logout("alice", giveUp); }); };
    EXPECT_THAT(login(), HasSubstr("10061"));
    gone = true;
    EXPECT_THAT(login(), HasSubstr("1223"));
    ASSERT_TRUE(passwords().savePassword("alice", "p"));
    EXPECT_EQ(accounts.renew("alice"), DWORD{WSAECONNREFUSED});
    ASSERT_TRUE(cookies().saveCookie("alice", "s"));
    EXPECT_THAT(logout(), HasSubstr("could not be ended"));
    EXPECT_TRUE(cookies().users().empty());
    EXPECT_FALSE(passwords().hasPassword("alice"));
    EXPECT_THAT(logout(), HasSubstr("has not logged in"));
    gone = false;
    ASSERT_TRUE(passwords().savePassword("alice", "p"));
    accounts.stop();
    EXPECT_EQ(accounts.renew("alice"), DWORD{ERROR_CANCELLED});
    EXPECT_THAT(login(), HasSubstr("1223"));
}

}  // namespace
}  // namespace dorvo::agent
