#include "settings/cookiemanager.h"

#include <windows.h>

#include "settings/keymanager.h"
#include "settings/passwordmanager.h"
#include "support/store_test.h"

namespace dorvo {
namespace {

class Cookies : public test::StoreTest {
protected:
    const std::wstring path_ = dataPath(L"\\cookies");
    std::string found_;
};

class Passwords : public test::StoreTest {
protected:
    const std::wstring path_ = dataPath(L"\\passwords");
    std::string found_;
};

TEST_F(Cookies, BelongToOneUserAtATime) {
    CookieManagerImpl cookies;
    EXPECT_TRUE(cookies.saveCookie("alice", "S1"));
    DeleteFileW(path_.c_str());
    EXPECT_TRUE(cookies.saveCookie("alice", "S1"));
    EXPECT_EQ(contentOf(path_), "");  // nothing new, nothing written
    EXPECT_TRUE(cookies.saveCookie("bob", "S1"));
    const CookieManagerImpl again;
    EXPECT_TRUE(again.findUser("S1", found_));
    EXPECT_EQ(found_, "bob");
    EXPECT_FALSE(again.findCookie("alice", found_));
    EXPECT_TRUE(again.isCookieValid("S1"));
    EXPECT_FALSE(again.isCookieValid("S"));
}

TEST_F(Cookies, RemovingWritesOnlyWhenSomethingGoes) {
    CookieManagerImpl cookies;
    EXPECT_FALSE(cookies.removeCookie("S1"));
    for (const char* nothing : {static_cast<const char*>(nullptr), ""}) {
        EXPECT_FALSE(cookies.saveCookie(nothing, "S1") || cookies.saveCookie("alice", nothing) ||
                     cookies.removeCookie(nothing) || cookies.isCookieValid(nothing));
        EXPECT_FALSE(cookies.findUser(nothing, found_) || cookies.findCookie(nothing, found_));
    }
    EXPECT_EQ(contentOf(path_), "");
    cookies.saveCookie("alice", "S2");
    cookies.saveCookie("alice", "S1");
    EXPECT_TRUE(cookies.findCookie("alice", found_));
    EXPECT_EQ(found_, "S1");  // her smallest
    EXPECT_TRUE(cookies.removeCookie("S1"));
    EXPECT_FALSE(CookieManagerImpl().isCookieValid("S1"));
    EXPECT_TRUE(CookieManagerImpl().isCookieValid("S2"));
    EXPECT_TRUE(cookies.removeAllCookie());
    EXPECT_FALSE(CookieManagerImpl().isCookieValid("S2"));
}

TEST_F(Cookies, OutliveAFileThatIsNoUse) {
    KeyManagerImpl::encryptStringToTextFile(path_.c_str(), R"({"S1":7,"S2":"alice"})");
    const CookieManagerImpl odd;
    EXPECT_FALSE(odd.findUser("S1", found_));
    EXPECT_TRUE(odd.findCookie("alice", found_));
    EXPECT_EQ(found_, "S2");
    for (const char* bad : {"[\"S1\"]", "{"}) {
        KeyManagerImpl::encryptStringToTextFile(path_.c_str(), bad);
        CookieManagerImpl cookies;
        EXPECT_FALSE(cookies.isCookieValid("S1"));
        EXPECT_TRUE(cookies.saveCookie("alice", "S1"));
        EXPECT_TRUE(CookieManagerImpl().isCookieValid("S1"));
    }
    DeleteFileW(path_.c_str());
    createDirectories(path_);
    CookieManagerImpl cookies;
    EXPECT_FALSE(cookies.saveCookie("alice", "S2"));
    EXPECT_TRUE(cookies.isCookieValid("S2"));
}

TEST_F(Passwords, EverySaveAndRemovalWritesTheFile) {
    PasswordManagerImpl passwords;
    EXPECT_TRUE(passwords.savePassword("alice", "p"));
    DeleteFileW(path_.c_str());
    EXPECT_TRUE(passwords.savePassword("alice", "p"));
    EXPECT_TRUE(PasswordManagerImpl().isPasswordValid("alice", "p"));
    EXPECT_TRUE(passwords.removePassword("alice"));
    EXPECT_FALSE(PasswordManagerImpl().findPassword("alice", found_));
    EXPECT_FALSE(passwords.savePassword("", "p") || passwords.savePassword("alice", "") ||
                 passwords.removePassword(nullptr));
    DeleteFileW(path_.c_str());
    createDirectories(path_);
    EXPECT_FALSE(passwords.savePassword("alice", "p"));
}

}  // namespace
}  // namespace dorvo
