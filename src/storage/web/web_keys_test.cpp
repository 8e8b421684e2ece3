#include "support/scripted_service.h"
// The sockets' header comes before the others.
#include "storage/web/web_keys.h"

#include <gtest/gtest.h>

#include <optional>

#include "base/error_codes.h"
#include "base/md5.h"
#include "settings/cookiemanager.h"
#include "settings/keymanager.h"
#include "settings/options.h"
#include "settings/recoveryfile.h"
#include "support/fails_with.h"
#include "support/log_capture.h"
#include "support/store_test.h"

namespace dorvo {
namespace {

using Names = std::vector<std::string>;
using test::Answer;
using test::Seen;
using test::singleton;

// The service with its one answer to each of the two requests.
class WebKeysTest : public test::StoreTest {
protected:
    WebKeysTest() { singleton<OptionsImpl>().setServerInfo("s", "127.0.0.1", service_->port()); }
    ~WebKeysTest() override { singleton<CookieManagerImpl>().removeAllCookie(); }

    // A user of this test alone: the stores of the process keep what they have.
    static std::string newUser() {
        static int number = 0;
        std::string user = "user" + std::to_string(++number);
        singleton<CookieManagerImpl>().removeAllCookie();
        singleton<CookieManagerImpl>().saveCookie(user.c_str(), "c");
        return user;
    }
    static std::string checksum(const std::string& user) {
        std::string md5;
        return singleton<KeyManagerImpl>().keyChecksum(user.c_str(), md5) ? md5 : "";
    }

    // A key of 32 such characters; gives its checksum.
    static std::string importKey(const std::string& user, char each) {
        const std::string bytes(recoveryKeySize, each);
        const std::wstring file = dataPath(L"\\recovery file");
        write(file, sealRecoveryFile(user, bytes, "sesame", std::string(recoverySaltSize, 's'),
                                     std::string(recoveryNonceSize, 'n'), {2, 8, 1}));
        std::string owner;
        EXPECT_TRUE(
            singleton<KeyManagerImpl>().importKey(user.c_str(), "sesame", file.c_str(), owner));
        return Md5::of(std::as_bytes(std::span(bytes)));
    }

    std::string held_;
    std::string exportStatus_ = "200 OK";
    std::optional<test::ScriptedService> service_{[this](const Seen& seen) {
        const bool get = seen.head.starts_with("POST /dorvo/WebServer/keys/GetMD5ofKeys.php ");
        EXPECT_TRUE(get ||
                    seen.head.starts_with("POST /dorvo/WebServer/keys/ExportMD5ofKeys.php "));
        EXPECT_TRUE(!get || seen.body == "{}");
        return get ? Answer{.body = held_} : Answer{exportStatus_};
    }};
};

TEST_F(WebKeysTest, AKeyIsMadeOnlyWhenNobodyHasOne) {
    constexpr KeyUse backup = KeyUse::backup;
    constexpr KeyUse restore = KeyUse::restore;
    const std::string other = R"({"md5":"00112233445566778899aabbccddeeff"})";
    const std::string none = R"({"md5":""})";
    struct Row {
        const char* name;
        KeyUse use;
        bool own;
        std::string held;  // "own", "imported": that of the user's key
        uint32_t error;
        Names seen;
        const char* exportStatus = "200 OK";
    };
    const Names get = {"GetMD5ofKeys"};
    const Names both = {"GetMD5ofKeys", "ExportMD5ofKeys"};
    const Row rows[] = {
        {"first backup of all", backup, false, none, 0, both},
        {"first at this service", backup, true, none, 0, both},
        {"not the first", backup, true, none, errorKeyForeign, both, "409 Conflict"},
        {"the same key", backup, true, "own", 0, get},
        {"another key", backup, true, other, errorKeyForeign, get},
        {"a new machine", backup, false, other, errorKeyMissing, get},
        {"an imported key", backup, true, "imported", 0, get},
        {"restore with the same key", restore, true, "own", 0, get},
        {"restore with an imported key", restore, true, "imported", 0, get},
        {"restore with another key", restore, true, other, errorKeyForeign, get},
        {"restore on a new machine", restore, false, other, errorKeyMissing, {}},
        {"restore that the service forgot", restore, true, none, 0, both},
        {"busy", backup, true, none, withHttpMark(503), both, "503 Busy"},
        {"no MD5", backup, false, R"({"md5":"00"})", 13, get},
        {"no text", backup, false, R"({"md5":7})", 13, get},
        {"no answer", backup, false, "{}", 13, get},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        test::LogCapture quiet;
        const std::string user = newUser();
        UserKey own;
        if (row.own) {
            ASSERT_TRUE(ownKey(user, own));
        }
        held_ = row.held == "own" ? R"({"md5":")" + checksum(user) + "\"}" : row.held;
        if (row.held == "imported") {
            const std::string md5 = importKey(user, 'k');
            ASSERT_TRUE(heldKey(user, md5, own)) << "and the own one stays";
            held_ = R"({"md5":")" + md5 + "\"}";
        }
        exportStatus_ = row.exportStatus;
        service_->forget();
        UserKey key;
        SetLastError(0);
        EXPECT_EQ(agreeOnKey(user, row.use, nullptr, key), row.error == 0);
        if (row.error != 0) {
            EXPECT_EQ(GetLastError(), row.error);
        }
        EXPECT_EQ(service_->endpoints(), row.seen);
        EXPECT_EQ(checksum(user).empty(), !row.own && row.error != 0);
        if (row.own && row.error == 0) {
            EXPECT_EQ(key.key, own.key);
            EXPECT_EQ(key.iv, own.iv);
        }
        if (row.error == 0 && row.seen.size() == 2) {
            EXPECT_EQ(service_->last().body, R"({"md5":")" + checksum(user) + "\"}");
            EXPECT_NE(key.key, UserKey().key);
        }
    }
}

TEST_F(WebKeysTest, AServiceOutOfReachIsNoAnswer) {
    const std::string user = newUser();
    test::LogCapture quiet;
    UserKey key;
    singleton<CookieManagerImpl>().removeAllCookie();
    EXPECT_FAILS(withHttpMark(401), agreeOnKey(user, KeyUse::backup, nullptr, key));
    EXPECT_TRUE(service_->seen().empty());
    service_.reset();
    EXPECT_FAILS(10061u, agreeOnKey(user, KeyUse::backup, nullptr, key));
    EXPECT_EQ(checksum(user), "");
}

}  // namespace
}  // namespace dorvo
