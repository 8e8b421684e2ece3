#include "settings/webauthhandler.h"

#include "settings/cookiemanager.h"
#include "settings/passwordmanager.h"
#include "support/store_test.h"

namespace dorvo {
namespace {

class WebAuth : public test::StoreTest {
protected:
    ~WebAuth() override { cookies_.removeAllCookie(); }

    CookieManagerImpl& cookies_ = test::singleton<CookieManagerImpl>();
    WebAuthHandler handler_;
};

TEST_F(WebAuth, PutsTheNewCookieInThePlaceOfTheOld) {
    const struct {
        const char *user, *fresh, *old;
        bool oldKept;
        const char *stored, *newCookie;  // alice's smallest cookie afterwards
    } rows[] = {
        {"alice", "S9", "S1", false, "S9", "S9"}, {"alice", "S0", nullptr, true, "S0", "S0"},
        {"alice", "", "S1", false, "", "before"}, {"alice", nullptr, "S1", false, "", "before"},
        {"", "S9", "S1", false, "", "S9"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        cookies_.removeAllCookie();
        cookies_.saveCookie("alice", "S1");
        handler_.onSetCookie("", "before", nullptr);
        handler_.onSetCookie(row.user, row.fresh, row.old);
        EXPECT_EQ(cookies_.isCookieValid("S1"), row.oldKept);
        std::string stored;
        cookies_.findCookie("alice", stored);
        EXPECT_EQ(stored, row.stored);
        EXPECT_EQ(handler_.newCookie(), row.newCookie);
    }
}

TEST_F(WebAuth, GivesAPasswordToItsServerOnly) {
    auto& passwords = test::singleton<PasswordManagerImpl>();
    passwords.savePassword("alice", "p", "a:1");
    cookies_.saveCookie("alice", "S1", "a:1");
    std::string user;
    std::string password;
    handler_.server("b:2");
    EXPECT_FALSE(handler_.onAuthRequired(user, password, "S1"));
    EXPECT_EQ(password, "");
    handler_.server("a:1");
    EXPECT_TRUE(handler_.onAuthRequired(user, password, "S1"));
    handler_.onSetCookie("alice", "S2", "S1");
    EXPECT_TRUE(cookies_.findCookie("alice", user, "a:1"));
    EXPECT_FALSE(cookies_.findCookie("alice", user, "b:2"));
    passwords.removePassword("alice");
}

}  // namespace
}  // namespace dorvo
