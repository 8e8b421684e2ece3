#include "settings/cookiemanager.h"

#include <windows.h>

#include "settings/keymanager.h"
#include "settings/passwordmanager.h"
#include "support/log_capture.h"
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
        EXPECT_FALSE(cookies.saveCookie(nothing, "S1"));
        EXPECT_FALSE(cookies.saveCookie("alice", nothing));
        EXPECT_FALSE(cookies.removeCookie(nothing));
        EXPECT_FALSE(cookies.findUser(nothing, found_));
        EXPECT_FALSE(cookies.findCookie(nothing, found_));
        EXPECT_FALSE(cookies.isCookieValid(nothing));
    }
    EXPECT_EQ(contentOf(path_), "");
    cookies.saveCookie("alice", "S2");
    cookies.saveCookie("alice", "S1");
    cookies.saveCookie("bob", "S0");
    EXPECT_TRUE(cookies.findCookie("alice", found_));
    EXPECT_EQ(found_, "S1");  // her smallest
    EXPECT_TRUE(cookies.removeCookie("S1"));
    EXPECT_FALSE(CookieManagerImpl().isCookieValid("S1"));
    EXPECT_TRUE(CookieManagerImpl().isCookieValid("S2"));
    EXPECT_TRUE(cookies.removeAllCookie());
    EXPECT_FALSE(CookieManagerImpl().isCookieValid("S2"));
    EXPECT_NE(contentOf(path_), "");
}

TEST_F(Cookies, ValueThatIsNoStringCountsAsAbsent) {
    KeyManagerImpl::encryptStringToTextFile(path_.c_str(), R"({"S1":7,"S2":"alice"})");
    const CookieManagerImpl cookies;
    EXPECT_FALSE(cookies.findUser("S1", found_));
    EXPECT_TRUE(cookies.isCookieValid("S1"));
    EXPECT_TRUE(cookies.findCookie("alice", found_));
    EXPECT_EQ(found_, "S2");
}

TEST_F(Cookies, SayWhatIsWrongWithTheFile) {
    const auto loaded = [](LogLevel level, const char* message) {
        test::LogCapture captured;
        const CookieManagerImpl cookies;
        EXPECT_TRUE(captured.has(level, message)) << message;
    };
    loaded(LogLevel::information, "Failed to decode the cookie storage file.\n");
    write(path_, R"({"S1":"alice"})");
    loaded(LogLevel::information, "Failed to decode the cookie storage file.\n");
    KeyManagerImpl::encryptStringToTextFile(path_.c_str(), R"(["S1"])");
    loaded(LogLevel::error, "Cookie storage is not JSON object.\n");
    KeyManagerImpl::encryptStringToTextFile(path_.c_str(), "{");
    loaded(LogLevel::error, "Failed to parse cookie storage, Line 1, column 2, incomplete JSON.\n");

    CookieManagerImpl cookies;
    EXPECT_TRUE(cookies.saveCookie("alice", "S1"));
    EXPECT_TRUE(CookieManagerImpl().isCookieValid("S1"));
    DeleteFileW(path_.c_str());
    createDirectories(path_);
    test::LogCapture captured;
    EXPECT_FALSE(cookies.saveCookie("alice", "S2"));
    EXPECT_TRUE(captured.has(LogLevel::information, "Failed to encode the cookie storage file.\n"));
    EXPECT_TRUE(cookies.isCookieValid("S2"));
}

TEST_F(Passwords, AreComparedByteByByte) {
    PasswordManagerImpl passwords;
    EXPECT_TRUE(passwords.savePassword("alice", "Se\xC3\xA9 cret"));
    const PasswordManagerImpl again;
    EXPECT_TRUE(again.isPasswordValid("alice", "Se\xC3\xA9 cret"));
    EXPECT_FALSE(again.isPasswordValid("alice", "se\xC3\xA9 cret"));
    EXPECT_FALSE(again.isPasswordValid("alice", ""));
    EXPECT_FALSE(again.isPasswordValid("alice", nullptr));
    EXPECT_FALSE(again.isPasswordValid("bob", "Se\xC3\xA9 cret"));
    EXPECT_TRUE(again.findPassword("alice", found_));
    EXPECT_EQ(found_, "Se\xC3\xA9 cret");
    EXPECT_FALSE(again.findPassword("bob", found_));
}

TEST_F(Passwords, EverySaveAndRemovalWritesTheFile) {
    PasswordManagerImpl passwords;
    EXPECT_TRUE(passwords.removePassword("nobody"));
    EXPECT_NE(contentOf(path_), "");
    EXPECT_TRUE(passwords.savePassword("alice", "p"));
    DeleteFileW(path_.c_str());
    EXPECT_TRUE(passwords.savePassword("alice", "p"));
    EXPECT_TRUE(PasswordManagerImpl().isPasswordValid("alice", "p"));
    EXPECT_TRUE(passwords.removePassword("alice"));
    EXPECT_FALSE(PasswordManagerImpl().findPassword("alice", found_));
    EXPECT_FALSE(passwords.savePassword("", "p"));
    EXPECT_FALSE(passwords.savePassword("alice", ""));
    EXPECT_FALSE(passwords.removePassword(nullptr));
}

TEST_F(Passwords, SayWhatIsWrongWithTheFile) {
    KeyManagerImpl::encryptStringToTextFile(path_.c_str(), "7");
    test::LogCapture captured;
    PasswordManagerImpl passwords;
    EXPECT_TRUE(captured.has(LogLevel::error, "Password storage is not JSON object.\n"));
    DeleteFileW(path_.c_str());
    createDirectories(path_);
    EXPECT_FALSE(passwords.savePassword("alice", "p"));
    EXPECT_TRUE(captured.has(LogLevel::error, "Failed to encode the password storage file.\n"));
    EXPECT_FALSE(PasswordManagerImpl().findPassword("alice", found_));
    EXPECT_TRUE(captured.has(LogLevel::error, "Failed to decode the password storage file.\n"));
}

}  // namespace
}  // namespace dorvo
