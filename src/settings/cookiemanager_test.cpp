#include "settings/cookiemanager.h"

#include <windows.h>

#include <atomic>
#include <thread>

#include "settings/keymanager.h"
#include "settings/options.h"
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

TEST_F(Cookies, BelongToTheServerThatGaveThem) {
    CookieManagerImpl cookies;
    EXPECT_TRUE(cookies.saveCookie("alice", "S1", "a:1"));
    EXPECT_TRUE(cookies.saveCookie("alice", "S0", "b:2"));
    EXPECT_TRUE(cookies.saveCookie("bob", "S2", "b:2"));
    std::string text;
    ASSERT_TRUE(KeyManagerImpl::decryptStringFromTextFile(path_.c_str(), text));
    EXPECT_NE(text.find(R"("S1" : "a:1")"), std::string::npos) << text;
    EXPECT_NE(text.find(R"("S1" : "alice")"), std::string::npos) << text;
    {
        const CookieManagerImpl again;
        EXPECT_TRUE(again.findCookie("alice", found_, "a:1") && found_ == "S1");
        EXPECT_TRUE(again.findCookie("alice", found_, "b:2") && found_ == "S0");
        EXPECT_FALSE(again.findCookie("alice", found_, "c:3"));
        EXPECT_EQ(again.users("a:1"), std::vector<std::string>{"alice"});
        EXPECT_EQ(again.users().size(), 2U);
    }
    // A cookie that comes again from another server is that one's.
    EXPECT_TRUE(cookies.saveCookie("alice", "S1", "b:2"));
    EXPECT_FALSE(CookieManagerImpl().findCookie("alice", found_, "a:1"));
    EXPECT_TRUE(cookies.removeUser("alice"));
    EXPECT_EQ(CookieManagerImpl().users(), std::vector<std::string>{"bob"});
    EXPECT_TRUE(cookies.removeCookie("S2"));
    ASSERT_TRUE(KeyManagerImpl::decryptStringFromTextFile(path_.c_str(), text));
    EXPECT_EQ(text.find("b:2"), std::string::npos) << text;
}

// Without a server it is that of the options, and the store of an older version is anyone's until
// it is bound.
TEST_F(Cookies, OfAnOlderVersionGoOnWithTheServerThatIsSet) {
    test::singleton<OptionsImpl>().setServerInfo("", "Backup.Example", 80);
    KeyManagerImpl::encryptStringToTextFile(path_.c_str(), R"({"S1":"alice"})");
    CookieManagerImpl cookies;
    EXPECT_TRUE(cookies.findCookie("alice", found_));
    EXPECT_TRUE(cookies.bindTo("backup.example:80", Bind::unbound));
    EXPECT_TRUE(cookies.saveCookie("alice", "S2", "c:3"));
    EXPECT_TRUE(cookies.bindTo("b:2", Bind::unbound)) << "there is nothing to bind";
    EXPECT_TRUE(CookieManagerImpl().findCookie("alice", found_) && found_ == "S1");
    test::singleton<OptionsImpl>().setServerInfo("", "backup.example", 81);
    EXPECT_FALSE(CookieManagerImpl().findCookie("alice", found_)) << "another port";
    EXPECT_TRUE(cookies.bindTo("backup.example:81", Bind::all));
    EXPECT_TRUE(CookieManagerImpl().findCookie("alice", found_) && found_ == "S1");
    EXPECT_FALSE(CookieManagerImpl().findCookie("alice", found_, "c:3"));
    DeleteFileW(besideProgram(L"options").c_str());
    DeleteFileW(dataPath(L"\\options").c_str());
    test::singleton<OptionsImpl>() = OptionsImpl();
}

TEST_F(Cookies, AreReplacedAtOnce) {
    CookieManagerImpl cookies;
    EXPECT_FALSE(cookies.replaceCookie("alice", "", "S1", "a:1")) << "there was nothing";
    EXPECT_FALSE(cookies.replaceCookies("alice", nullptr, "a:1"));
    EXPECT_EQ(contentOf(path_), "");
    cookies.saveCookie("alice", "A1", "a:1");
    cookies.saveCookie("alice", "B1", "b:2");
    EXPECT_TRUE(cookies.replaceCookie("alice", "A2", "A1", "a:1"));
    EXPECT_FALSE(CookieManagerImpl().isCookieValid("A1"));
    EXPECT_TRUE(CookieManagerImpl().findCookie("alice", found_, "a:1"));
    EXPECT_EQ(found_, "A2");
    EXPECT_TRUE(cookies.replaceCookie("alice", "A2", "A2", "a:1")) << "the same stays";
    EXPECT_TRUE(CookieManagerImpl().isCookieValid("A2"));
    EXPECT_TRUE(CookieManagerImpl().isCookieValid("B1"));
    cookies.saveCookie("bob", "B2", "a:1");
    EXPECT_TRUE(cookies.replaceCookies("alice", "A3", "a:1"));
    for (const char* gone : {"A2", "B1"}) {
        EXPECT_FALSE(CookieManagerImpl().isCookieValid(gone)) << gone;
    }
    EXPECT_EQ(CookieManagerImpl().users("a:1"), (std::vector<std::string>{"alice", "bob"}));
    EXPECT_FALSE(CookieManagerImpl().findCookie("alice", found_, "b:2"));
}

TEST_F(Cookies, LeaveNobodyBetweenTwoSessions) {
    CookieManagerImpl cookies;
    ASSERT_TRUE(cookies.saveCookie("alice", "S0", {}));
    std::atomic<bool> done = false;
    int without = 0;
    std::jthread looker([&] {
        std::string found;
        while (!done) {
            without += cookies.findCookie("alice", found, {}) ? 0 : 1;
        }
    });
    std::string old = "S0";
    for (int i = 1; i < 100; ++i) {
        const std::string fresh = "S" + std::to_string(i);
        EXPECT_TRUE(i % 2 == 0 ? cookies.replaceCookies("alice", fresh.c_str(), {})
                               : cookies.replaceCookie("alice", fresh.c_str(), old.c_str(), {}));
        old = fresh;
    }
    done = true;
    looker.join();
    EXPECT_EQ(without, 0);
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

TEST_F(Passwords, BelongToTheServerThatTheyWereGivenFor) {
    PasswordManagerImpl passwords;
    EXPECT_TRUE(passwords.savePassword("alice", "p", "a:1"));
    EXPECT_TRUE(PasswordManagerImpl().findPassword("alice", found_, "a:1"));
    EXPECT_FALSE(PasswordManagerImpl().findPassword("alice", found_, "b:2"));
    EXPECT_TRUE(PasswordManagerImpl().hasPassword("alice"));
    EXPECT_TRUE(passwords.bindTo("b:2", Bind::all));
    EXPECT_TRUE(PasswordManagerImpl().findPassword("alice", found_, "b:2"));
    EXPECT_TRUE(passwords.removePassword("alice"));
    EXPECT_TRUE(passwords.savePassword("alice", "q", {}));
    EXPECT_TRUE(PasswordManagerImpl().findPassword("alice", found_, "a:1")) << "nobody's now";
}

}  // namespace
}  // namespace dorvo
