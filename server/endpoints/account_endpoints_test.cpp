// Logins and sessions.
#include "endpoints/account_endpoints.h"

#include <atomic>
#include <regex>
#include <thread>
#include <vector>

#include "catalog/sqlite.h"
#include "common/digest.h"
#include "endpoints/password_hash.h"
#include "httpd/client_address.h"
#include "testing/service_fixture.h"

namespace dorvo {

namespace {

class Accounts : public ServiceFixture {
protected:
    void SetUp() override {
        ServiceFixture::SetUp();
        addUser(data, "carol", "s\u00e9cret");
    }

    Answer login(const std::string& user, const std::string& password,
                 const std::string& machine = "pc") {
        return ask(loginPath, {{"user", user}, {"password", password}, {"machine", machine}}, "-");
    }
};

TEST_F(Accounts, ALoginGivesASessionUntilTheLogout) {
    column("ALTER TABLE users RENAME TO away");
    for (int i = 0; i < LoginLimiter::maxTries; ++i) {
        EXPECT_EQ(login("carol", "wrong").status, 503);  // nobody has looked at the password
    }
    column("ALTER TABLE away RENAME TO users");
    const Answer first = login("carol", "s\u00e9cret");
    EXPECT_EQ(first.status, 200);
    EXPECT_EQ(first.body, "{}");
    const std::string cookie = first.header("Set-Cookie");
    EXPECT_TRUE(std::regex_match(cookie, std::regex("DORVOSESSION=[0-9a-f]{64}"))) << cookie;
    const std::string other = login("carol", "s\u00e9cret").header("Set-Cookie");
    EXPECT_NE(other, cookie);
    EXPECT_EQ(offer("i1", {{"a"}}, "job", "x=y; " + cookie), "a");
    EXPECT_EQ(everything().find(cookie.substr(13)), std::string::npos);  // only its hash is kept

    EXPECT_EQ(postAs(cookie, logoutPath, "{}").status, 200);
    EXPECT_EQ(offer("i1", {{"a"}}, "job", cookie), "<401>");
    EXPECT_EQ(offer("i1", {{"a"}}, "job", other), "a");
}

TEST_F(Accounts, TriesAtOnceAreNoMoreThanOneAfterTheOther) {
    std::atomic<int> tried = 0;
    std::vector<std::thread> clients;
    clients.reserve(size_t{2} * LoginLimiter::maxTries);
    for (int i = 0; i < 2 * LoginLimiter::maxTries; ++i) {
        clients.emplace_back([&] {
            int status = 503;
            while (status == 503) {
                status = login("carol", "wrong").status;
            }
            tried += status == 401 ? 1 : 0;
            EXPECT_TRUE(status == 401 || status == 429) << status;
        });
    }
    for (std::thread& client : clients) {
        client.join();
    }
    EXPECT_EQ(tried, LoginLimiter::maxTries);
    EXPECT_EQ(login("carol", "s\u00e9cret").status, 429);
    EXPECT_EQ(login("nobody", "x").status, 401);
}

TEST_F(Accounts, AreRefusedWhenUnusableOrTaken) {
    using Account = std::pair<std::string, std::string>;
    for (const auto& [name, password] :
         {Account{"carol", "other"}, Account{"", "x"}, Account{"da\nve", "x"},
          Account{std::string(256, 'd'), "x"}, Account{"dave", ""}, Account{"dave", "\xe9"},
          Account{"d\xe9", "x"}, Account{"dave", std::string(1025, 'x')},
          Account{"dave", std::string("a\0b", 3)}}) {
        EXPECT_THROW(addUser(data, name, password), std::exception) << name << password;
    }
    EXPECT_EQ(login("carol", "s\u00e9cret").status, 200);
    EXPECT_EQ(login("dave", "").status, 401);
}

TEST(Sessions, EndAfterBeingIdleForTheirLifetime) {
    SqliteCatalog catalog(":memory:");
    constexpr int64_t lifetime = 1000;
    catalog.addUser("u", "-");
    catalog.addSession("token", "u", "m", 5000, lifetime);
    EXPECT_TRUE(catalog.findSession("token", 5999, lifetime));  // counts as use
    const auto session = catalog.findSession("token", 6998, lifetime);
    ASSERT_TRUE(session);
    EXPECT_EQ(session->user + "@" + session->machine, "u@m");
    EXPECT_FALSE(catalog.findSession("token", 6998 + lifetime, lifetime));
    EXPECT_FALSE(catalog.findSession("other", 5000, lifetime));
    EXPECT_FALSE(catalog.findSession("", 5000, lifetime));
}

TEST_F(Accounts, KeepAConnectionFromGivingWayForTheirSession) {
    options.limits.connections = 1;
    restart();
    const std::string body = R"({"machine":"","jobdefinitionid":""})";
    Client first(port());
    const auto ask = [&](const std::string& cookie) {
        return first.post(listInstancesPath, body, cookie).status;
    };
    EXPECT_EQ(ask(alice), 200);
    EXPECT_EQ(Client(port()).receive().status, 503);
    // Also while the next request is on its way.
    const std::string next =
        Client::request(listInstancesPath, body, alice, "Expect: 100-continue\r\n");
    first.send(next.substr(0, next.size() - body.size()));
    EXPECT_EQ(first.receive().status, 100);
    EXPECT_EQ(Client(port()).receive().status, 503);
    first.send(body);
    EXPECT_EQ(first.receive().status, 200);
    column("DELETE FROM sessions WHERE machine = 1");
    EXPECT_EQ(ask(alice), 401);
    EXPECT_EQ(Client(port()).post(listInstancesPath, body, bob).status, 200);
    first.waitForClose();
}

TEST_F(Accounts, AreLockedForTheClientBehindATrustedProxyAlone) {
    const auto from = [&](const char* client, const std::string& password) {
        const std::string body =
            R"({"user":"carol","machine":"pc","password":")" + password + "\"}";
        Client proxy(server->port());
        proxy.send(Client::request(loginPath, body, {},
                                   "X-Forwarded-For: " + std::string(client) + "\r\n"));
        return proxy.receive().status;
    };
    options.limits.trustedProxies = {"127.0.0.1"};
    restart();
    for (int i = 0; i < LoginLimiter::maxTries; ++i) {
        EXPECT_EQ(from("192.0.2.1", "wrong"), 401);
    }
    EXPECT_EQ(from("192.0.2.1", "s\u00e9cret"), 429);
    EXPECT_EQ(from("192.0.2.2", "s\u00e9cret"), 200);
    EXPECT_EQ(from("192.0.2.2, 192.0.2.1", "s\u00e9cret"), 429);
    options.limits.trustedProxies.clear();
    restart();
    for (int i = 0; i < LoginLimiter::maxTries; ++i) {
        from("192.0.2.1", "wrong");
    }
    EXPECT_EQ(from("192.0.2.2", "s\u00e9cret"), 429);
}

TEST_F(Accounts, KeepTheirSessionsWhenTheClockOfTheWallJumps) {
    constexpr int64_t year = int64_t{365} * 24 * 3600;
    for (const int64_t ahead : {int64_t{10} * year, -10 * year}) {
        server.reset();
        change("UPDATE sessions SET used = used - " + std::to_string(ahead));
        restart();
        EXPECT_EQ(login("carol", "s\u00e9cret").status, 200);
        EXPECT_EQ(offer("i1", {{"a"}}), "a") << ahead;
    }
}

TEST(SessionClock, BelievesTheWallWithinBounds) {
    constexpr int64_t lifetime = 400;
    struct Row {
        int64_t lastUse;
        int64_t wall;
        int64_t start;
    };
    const Row rows[] = {{0, 5000, 5000},    {5000, 5000, 5000}, {5000, 5100, 5100},
                        {5000, 5101, 5100}, {5000, 4999, 5000}, {5000, 0, 5000}};
    for (const Row& row : rows) {
        EXPECT_EQ(SessionClock::start(row.lastUse, lifetime, row.wall), row.start) << row.wall;
    }
}

TEST(ClientNetwork, IsHalfOfALongAddress) {
    const std::pair<const char*, const char*> rows[] = {{"192.0.2.7", "192.0.2.7"},
                                                        {"2001:db8:1:2:3:4:5:6", "2001:db8:1:2::"},
                                                        {"::1", "::"},
                                                        {"::ffff:192.0.2.7", "::ffff:192.0.2.7"},
                                                        {"fe80::1%eth0", "fe80::1%eth0"},
                                                        {"-", "-"}};
    for (const auto& [address, network] : rows) {
        EXPECT_EQ(clientNetwork(address), network);
    }
}

TEST(Password, MatchesOnlyItself) {
    const std::string hash = hashPassword("secret");
    EXPECT_NE(hash, hashPassword("secret"));
    EXPECT_TRUE(passwordMatches("secret", hash));
    for (const char* wrong : {"", "Secret", "secret ", "secre"}) {
        EXPECT_FALSE(passwordMatches(wrong, hash)) << wrong;
    }
    for (const std::string& damaged :
         {std::string(), std::string("-"), hash + "0", hash.substr(0, hash.size() - 1),
          "scrypt:99" + hash.substr(9), "scrypt:x" + hash.substr(9)}) {
        EXPECT_FALSE(passwordMatches("secret", damaged)) << damaged;
    }
}

TEST(LoginLimiter, ForgetsAfterItsWindowAndAfterASuccess) {
    LoginLimiter limiter;
    // How many of so many tries are let through.
    const auto allowed = [&](int tries, int64_t now, const char* user = "u",
                             const char* address = "a") {
        int count = 0;
        for (int i = 0; i < tries; ++i) {
            count += limiter.begin(user, address, now) ? 1 : 0;
        }
        return count;
    };
    constexpr int most = LoginLimiter::maxTries;
    // A machine that has just been started: the window begins with the first try even so.
    EXPECT_EQ(allowed(most + 1, 10, "w"), most);
    EXPECT_EQ(allowed(1, LoginLimiter::windowSeconds + 9, "w"), 0);
    EXPECT_EQ(allowed(most - 1, 1000), most - 1);
    EXPECT_FALSE(limiter.closed("u", "a", 1000));
    EXPECT_EQ(allowed(2, 1500), 1);
    EXPECT_TRUE(limiter.closed("u", "a", 1500));
    EXPECT_FALSE(limiter.closed("u", "b", 1500));
    EXPECT_FALSE(limiter.closed("u", "a", 1000 + LoginLimiter::windowSeconds));
    EXPECT_EQ(allowed(1, 1500, "u", "b"), 1);
    EXPECT_EQ(allowed(1, 1500, "v", "a"), 1);
    EXPECT_EQ(allowed(1, 1000 + LoginLimiter::windowSeconds - 1), 0);
    EXPECT_EQ(allowed(most + 1, 1000 + LoginLimiter::windowSeconds), most);
    limiter.succeeded("u", "a");
    EXPECT_EQ(allowed(1, 1000 + LoginLimiter::windowSeconds), 1);
}

// As the program of the next version would.
TEST_F(Accounts, AreAddedToNoCatalogThatIsServedByAnotherVersion) {
    const std::string version = column("PRAGMA user_version");
    column("PRAGMA user_version=2");
    try {
        addUser(data, "dave", "x");
        ADD_FAILURE();
    } catch (const std::exception& refusal) {
        EXPECT_NE(std::string(refusal.what()).find("another version"), std::string::npos);
    }
    EXPECT_EQ(column("PRAGMA user_version"), "2");
    column("PRAGMA user_version=" + version);
    addUser(data, "dave", "x");
    backup("i1", {{"a"}});
    server.reset();
    std::filesystem::rename(data / "catalog.db", data / "away");
    EXPECT_THROW(addUser(data, "eve", "x"), std::exception);
    EXPECT_FALSE(std::filesystem::exists(data / "catalog.db"));
    std::filesystem::rename(data / "away", data / "catalog.db");
    addUser(data, "eve", "x");
}

}  // namespace

}  // namespace dorvo
