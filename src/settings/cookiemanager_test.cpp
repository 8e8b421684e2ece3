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
    // As the file has it: the user's cookie for the server, empty when there is none.
    static std::string saved(const char* user, const std::string& server = {}) {
        std::string cookie;
        CookieManagerImpl().findCookie(user, cookie, server);
        return cookie;
    }
    static bool isSaved(const char* cookie) { return CookieManagerImpl().isCookieValid(cookie); }
    std::string text() const {
        std::string text;
        EXPECT_TRUE(KeyManagerImpl::decryptStringFromTextFile(path_.c_str(), text));
        return text;
    }

    const std::wstring path_ = dataPath(L"\\cookies");
    CookieManagerImpl cookies_;
    std::string found_;
};

TEST_F(Cookies, BelongToOneUserAtATime) {
    EXPECT_TRUE(cookies_.saveCookie("alice", "S1"));
    DeleteFileW(path_.c_str());
    EXPECT_TRUE(cookies_.saveCookie("alice", "S1"));
    EXPECT_EQ(contentOf(path_), "") << "nothing new, nothing written";
    EXPECT_TRUE(cookies_.saveCookie("bob", "S1"));
    EXPECT_TRUE(CookieManagerImpl().findUser("S1", found_));
    EXPECT_EQ(found_, "bob");
    EXPECT_EQ(saved("alice"), "");
    EXPECT_FALSE(isSaved("S"));
}

TEST_F(Cookies, RemovingWritesOnlyWhenSomethingGoes) {
    EXPECT_FALSE(cookies_.removeCookie("S1"));
    for (const char* nothing : {static_cast<const char*>(nullptr), ""}) {
        EXPECT_FALSE(cookies_.saveCookie(nothing, "S1") || cookies_.saveCookie("alice", nothing) ||
                     cookies_.removeCookie(nothing) || cookies_.isCookieValid(nothing) ||
                     cookies_.findUser(nothing, found_) || cookies_.findCookie(nothing, found_));
    }
    EXPECT_EQ(contentOf(path_), "");
    cookies_.saveCookie("alice", "S2");
    cookies_.saveCookie("alice", "S1");
    EXPECT_EQ(saved("alice"), "S1") << "her smallest";
    EXPECT_TRUE(cookies_.removeCookie("S1"));
    EXPECT_EQ(saved("alice"), "S2");
    EXPECT_TRUE(cookies_.removeAllCookie());
    EXPECT_FALSE(isSaved("S2"));
}

TEST_F(Cookies, BelongToTheServerThatGaveThem) {
    EXPECT_TRUE(cookies_.saveCookie("alice", "S1", "a:1"));
    EXPECT_TRUE(cookies_.saveCookie("alice", "S0", "b:2"));
    EXPECT_TRUE(cookies_.saveCookie("bob", "S2", "b:2"));
    EXPECT_NE(text().find(R"("S1" : "a:1")"), std::string::npos) << text();
    EXPECT_NE(text().find(R"("S1" : "alice")"), std::string::npos) << text();
    EXPECT_EQ(saved("alice", "a:1"), "S1");
    EXPECT_EQ(saved("alice", "b:2"), "S0");
    EXPECT_EQ(saved("alice", "c:3"), "");
    EXPECT_EQ(CookieManagerImpl().users("a:1"), std::vector<std::string>{"alice"});
    EXPECT_EQ(CookieManagerImpl().users().size(), 2U);
    // A cookie that comes again from another server is that one's.
    EXPECT_TRUE(cookies_.saveCookie("alice", "S1", "b:2"));
    EXPECT_EQ(saved("alice", "a:1"), "");
    EXPECT_TRUE(cookies_.removeUser("alice"));
    EXPECT_EQ(CookieManagerImpl().users(), std::vector<std::string>{"bob"});
    EXPECT_TRUE(cookies_.removeCookie("S2"));
    EXPECT_EQ(text().find("b:2"), std::string::npos) << text();
}

// Without a server it is that of the options, and the store of an older version is anyone's until
// it is bound.
TEST_F(Cookies, OfAnOlderVersionGoOnWithTheServerThatIsSet) {
    auto& options = test::singleton<OptionsImpl>();
    options.setServerInfo("", "Backup.Example", 80);
    KeyManagerImpl::encryptStringToTextFile(path_.c_str(), R"({"S1":"alice"})");
    CookieManagerImpl cookies;
    EXPECT_TRUE(cookies.findCookie("alice", found_));
    EXPECT_TRUE(cookies.bindTo("backup.example:80", Bind::unbound));
    EXPECT_TRUE(cookies.saveCookie("alice", "S2", "c:3"));
    EXPECT_TRUE(cookies.bindTo("b:2", Bind::unbound)) << "there is nothing to bind";
    EXPECT_TRUE(CookieManagerImpl().findCookie("alice", found_) && found_ == "S1");
    options.setServerInfo("", "backup.example", 81);
    EXPECT_FALSE(CookieManagerImpl().findCookie("alice", found_)) << "another port";
    EXPECT_TRUE(cookies.bindTo("backup.example:81", Bind::all));
    EXPECT_TRUE(CookieManagerImpl().findCookie("alice", found_) && found_ == "S1");
    EXPECT_EQ(saved("alice", "c:3"), "");
    DeleteFileW(besideProgram(L"options").c_str());
    DeleteFileW(dataPath(L"\\options").c_str());
    options = OptionsImpl();
}

TEST_F(Cookies, AreReplacedAtOnce) {
    EXPECT_FALSE(cookies_.replaceCookie("alice", "", "S1", "a:1")) << "there was nothing";
    EXPECT_FALSE(cookies_.replaceCookies("alice", nullptr, "a:1"));
    EXPECT_EQ(contentOf(path_), "");
    cookies_.saveCookie("alice", "A1", "a:1");
    cookies_.saveCookie("alice", "B1", "b:2");
    cookies_.saveCookie("bob", "B2", "a:1");
    for (const char* old : {"A1", "A2"}) {  // the same stays
        EXPECT_TRUE(cookies_.replaceCookie("alice", "A2", old, "a:1"));
        EXPECT_EQ(saved("alice", "a:1"), "A2");
        EXPECT_EQ(saved("alice", "b:2"), "B1");
        EXPECT_FALSE(isSaved("A1"));
    }
    EXPECT_TRUE(cookies_.replaceCookies("alice", "A3", "a:1"));
    EXPECT_FALSE(isSaved("A2") || isSaved("B1"));
    EXPECT_EQ(saved("alice", "a:1") + saved("bob", "a:1") + saved("alice", "b:2"), "A3B2");
}

TEST_F(Cookies, LeaveNobodyBetweenTwoSessions) {
    ASSERT_TRUE(cookies_.saveCookie("alice", "S0", {}));
    std::atomic<bool> done = false;
    int without = 0;
    std::jthread looker([&] {
        std::string found;
        while (!done) {
            without += cookies_.findCookie("alice", found, {}) ? 0 : 1;
        }
    });
    for (int i = 1; i < 100; ++i) {
        const std::string old = "S" + std::to_string(i - 1);
        const std::string fresh = "S" + std::to_string(i);
        EXPECT_TRUE(i % 2 == 0 ? cookies_.replaceCookies("alice", fresh.c_str(), {})
                               : cookies_.replaceCookie("alice", fresh.c_str(), old.c_str(), {}));
    }
    done = true;
    looker.join();
    EXPECT_EQ(without, 0);
}

TEST_F(Cookies, OutliveAFileThatIsNoUse) {
    const std::pair<const char*, const char*> rows[] = {
        {R"({"S1":7,"S2":"alice"})", "S2"}, {"[\"S1\"]", ""}, {"{", ""}};
    for (const auto& [content, cookie] : rows) {
        KeyManagerImpl::encryptStringToTextFile(path_.c_str(), content);
        EXPECT_EQ(saved("alice"), cookie);
        CookieManagerImpl cookies;
        EXPECT_FALSE(cookies.findUser("S1", found_));
        EXPECT_TRUE(cookies.saveCookie("alice", "S1"));
        EXPECT_EQ(saved("alice"), "S1");
    }
    DeleteFileW(path_.c_str());
    createDirectories(path_);
    EXPECT_FALSE(cookies_.saveCookie("alice", "S2"));
    EXPECT_TRUE(cookies_.isCookieValid("S2"));
}

class Passwords : public test::StoreTest {
protected:
    static bool saved(const char* server) {
        std::string password;
        return PasswordManagerImpl().findPassword("alice", password, server);
    }

    const std::wstring path_ = dataPath(L"\\passwords");
    PasswordManagerImpl passwords_;
};

TEST_F(Passwords, EverySaveAndRemovalWritesTheFile) {
    EXPECT_TRUE(passwords_.savePassword("alice", "p"));
    DeleteFileW(path_.c_str());
    EXPECT_TRUE(passwords_.savePassword("alice", "p"));
    EXPECT_TRUE(PasswordManagerImpl().isPasswordValid("alice", "p"));
    EXPECT_FALSE(PasswordManagerImpl().isPasswordValid("alice", "P"));
    EXPECT_TRUE(passwords_.removePassword("alice"));
    EXPECT_FALSE(saved(""));
    EXPECT_FALSE(passwords_.savePassword("", "p") || passwords_.savePassword("alice", "") ||
                 passwords_.removePassword(nullptr));
    DeleteFileW(path_.c_str());
    createDirectories(path_);
    EXPECT_FALSE(passwords_.savePassword("alice", "p"));
}

TEST_F(Passwords, BelongToTheServerThatTheyWereGivenFor) {
    EXPECT_TRUE(passwords_.savePassword("alice", "p", "a:1"));
    EXPECT_TRUE(saved("a:1"));
    EXPECT_FALSE(saved("b:2"));
    EXPECT_TRUE(PasswordManagerImpl().hasPassword("alice"));
    EXPECT_TRUE(passwords_.bindTo("b:2", Bind::all));
    EXPECT_TRUE(saved("b:2"));
    EXPECT_TRUE(passwords_.removePassword("alice"));
    EXPECT_TRUE(passwords_.savePassword("alice", "q", {}));
    EXPECT_TRUE(saved("a:1")) << "nobody's now";
}

}  // namespace
}  // namespace dorvo
