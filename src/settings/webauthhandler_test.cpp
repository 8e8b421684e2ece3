#include "settings/webauthhandler.h"

#include "settings/cookiemanager.h"
#include "settings/passwordmanager.h"
#include "support/store_test.h"

namespace dorvo {
namespace {

class WebAuth : public test::StoreTest {
protected:
    WebAuth() {
        test::singleton<CookieManagerImpl>().removeAllCookie();
        test::singleton<CookieManagerImpl>().saveCookie("alice", "S1");
        test::singleton<CookieManagerImpl>().saveCookie("bob", "S2");
        test::singleton<PasswordManagerImpl>().savePassword("alice", "p");
        test::singleton<PasswordManagerImpl>().removePassword("bob");
    }
    ~WebAuth() override { test::singleton<CookieManagerImpl>().removeAllCookie(); }

    WebAuthHandler handler_;
};

TEST_F(WebAuth, LooksUpOwnerAndPassword) {
    const struct {
        const char* cookie;
        bool found;
        const char* user;
        const char* password;
    } rows[] = {{"S1", true, "alice", "p"},
                {"S2", false, "bob", ""},
                {"S3", false, "", ""},
                {"", false, "", ""}};
    for (const auto& row : rows) {
        std::string user;
        std::string password;
        EXPECT_EQ(handler_.onAuthRequired(user, password, row.cookie), row.found) << row.cookie;
        EXPECT_EQ(user, row.user) << row.cookie;
        EXPECT_EQ(password, row.password) << row.cookie;
    }
}

TEST_F(WebAuth, PutsTheNewCookieInThePlaceOfTheOld) {
    const struct {
        const char* name;
        const char* user;
        const char* fresh;
        const char* old;
        bool oldKept;
        const char* stored;  // alice's smallest cookie afterwards
        const char* newCookie;
    } rows[] = {
        {"replaced", "alice", "S9", "S1", false, "S9", "S9"},
        {"added", "alice", "S0", nullptr, true, "S0", "S0"},
        {"empty", "alice", "", "S1", false, "", "before"},
        {"none", "alice", nullptr, "S1", false, "", "before"},
        {"nobody's", "", "S9", "S1", false, "", "S9"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        test::singleton<CookieManagerImpl>().removeAllCookie();
        test::singleton<CookieManagerImpl>().saveCookie("alice", "S1");
        handler_.onSetCookie("", "before", nullptr);
        handler_.onSetCookie(row.user, row.fresh, row.old);
        EXPECT_EQ(test::singleton<CookieManagerImpl>().isCookieValid("S1"), row.oldKept);
        std::string stored;
        test::singleton<CookieManagerImpl>().findCookie("alice", stored);
        EXPECT_EQ(stored, row.stored);
        EXPECT_EQ(handler_.newCookie(), row.newCookie);
    }
}

}  // namespace
}  // namespace dorvo
