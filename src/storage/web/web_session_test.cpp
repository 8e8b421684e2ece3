#include "support/scripted_service.h"
// The sockets' header comes before the others.
#include "storage/web/web_session.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <mutex>
#include <set>
#include <thread>
#include <utility>

#include "base/error_codes.h"
#include "http_util/http_command.h"
#include "settings/cookiemanager.h"
#include "settings/options.h"
#include "settings/passwordmanager.h"
#include "settings/serverbinding.h"
#include "storage/web/web_exchange.h"
#include "support/log_capture.h"
#include "support/signal.h"
#include "support/store_test.h"

namespace dorvo {
namespace {

using test::Answer;
using test::Seen;
using test::singleton;
using Do_Command = Command_To_Server<Request_T<std::string>, Response_T<std::string>>;

// Plays the service: knows valid cookies and alice's password; a login makes the cookies N1, N2.
class WebSessionTest : public test::StoreTest {
protected:
    WebSessionTest() : service_([this](const Seen& seen) { return reply(seen); }) {
        logOut();
        singleton<OptionsImpl>().setServerInfo("s", "127.0.0.1", service_.port());
    }
    ~WebSessionTest() override { logOut(); }

    static void logOut() {
        singleton<CookieManagerImpl>().removeAllCookie();
        singleton<PasswordManagerImpl>().removePassword("alice");
    }

    static void keep(const std::string& cookie, const char* user = "alice") {
        singleton<CookieManagerImpl>().saveCookie(user, cookie.c_str());
    }
    static void keepPassword(const char* password) {
        singleton<PasswordManagerImpl>().savePassword("alice", password);
    }
    static std::string kept() {
        std::string cookie;
        singleton<CookieManagerImpl>().findCookie("alice", cookie);
        return cookie;
    }
    // The status of a command of the session; 0 when it was broken off.
    int run(Web_Session& session) {
        if (session.invoker().invoker() == nullptr) {
            session.invoker().set_server("127.0.0.1", service_.port(), 0);
        }
        Do_Command command("Do");
        command.request().body("body");
        return session.run(command, &sent_) == 0 ? command.response().status() : 0;
    }
    int run(const std::string& cookie) {
        Web_Session session("alice", cookie);
        return run(session);
    }

    std::mutex lock_;   // guards seen_, valid_ and logins_
    std::string seen_;  // "Login; ", or cookie and body of a command: "C1 body; "
    std::set<std::string> valid_;
    int logins_ = 0;
    std::string refusal_ = "401 Unauthorized";
    std::string loginStatus_ = "200 OK";
    bool loginsAreGood_ = true;
    std::function<void(bool login)> before_ = [](bool) {};
    uint64_t sent_ = 0;

private:
    Answer reply(const Seen& seen) {
        const bool login = seen.endpoint == "Login";
        before_(login);
        const std::lock_guard guard(lock_);
        const size_t at = seen.head.find("Cookie: ");
        if (!login) {
            const std::string cookie =
                at == seen.head.npos ? ""
                                     : seen.head.substr(at + 8, seen.head.find('\r', at) - at - 8);
            seen_ += cookie + " " + seen.body + "; ";
            return {valid_.contains(cookie) ? "200 OK" : refusal_};
        }
        seen_ += "Login; ";
        EXPECT_EQ(at, seen.head.npos);
        if (seen.body.find(R"("password":"secret","user":"alice")") == seen.body.npos) {
            return {"401 Unauthorized"};
        }
        if (loginStatus_ != "200 OK") {
            return {loginStatus_};
        }
        const std::string cookie = "N" + std::to_string(++logins_);
        if (loginsAreGood_) {
            valid_.insert(cookie);
        }
        return {.fields = "Set-Cookie: " + cookie + "\r\n"};
    }

protected:
    test::ScriptedService service_;
};

TEST_F(WebSessionTest, ARefusedCommandIsRunAgainWithANewCookie) {
    struct Row {
        const char* name;
        int status;
        std::string seen;
        std::string kept;
        const char* password = "secret";
        const char* refusal = "401 Unauthorized";
        const char* stored = "C1";
        const char* valid = "";
        const char* login = "200 OK";
        bool good = true;
    };
    const char* const none = nullptr;
    const char* const right = "secret";
    const char* const refused = "401 Unauthorized";
    const char* const unacceptable = "406 Not Acceptable";
    const Row rows[] = {
        {"valid", 200, "C1 body; ", "C1", right, refused, "C1", "C1"},
        {"expired", 200, "C1 body; Login; N1 body; ", "N1"},
        {"not acceptable", 200, "C1 body; Login; N1 body; ", "N1", right, unacceptable},
        {"forbidden", 403, "C1 body; ", "C1", right, "403 Forbidden"},
        {"another job has logged in", 200, "C1 body; C2 body; ", "C2", right, refused, "C2", "C2"},
        {"and has expired too", 200, "C1 body; C2 body; Login; N1 body; ", "N1", right, refused,
         "C2"},
        {"no password", 401, "C1 body; ", "C1", none},
        {"wrong password", 401, "C1 body; Login; ", "C1", "Secret"},
        {"too many logins", 406, "C1 body; Login; ", "C1", right, unacceptable, "C1", "",
         "429 Too Many"},
        {"logged out", 401, "C1 body; ", "", right, refused, none},
        {"refused in spite of it", 401, "C1 body; Login; N1 body; ", "N1", right, refused, "C1", "",
         "200 OK", false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        logOut();
        if (row.stored != nullptr) {
            keep(row.stored);
        }
        keepPassword(row.password);
        seen_.clear();
        logins_ = 0;
        valid_ = {row.valid};
        refusal_ = row.refusal;
        loginStatus_ = row.login;
        loginsAreGood_ = row.good;
        test::LogCapture capture;
        EXPECT_EQ(run("C1"), row.status);
        EXPECT_EQ(seen_, row.seen);
        EXPECT_EQ(kept(), row.kept);
        for (const test::LogLine& line : capture.lines()) {
            EXPECT_EQ(line.text.find("ecret"), std::string::npos) << line.text;
            EXPECT_EQ(line.text.find("N1"), std::string::npos) << line.text;
        }
    }
}

// Without a cookie its user has logged out, but may have logged in again meanwhile.
TEST_F(WebSessionTest, WithoutACookieNoLoginIsTried) {
    keepPassword("secret");
    valid_ = {"C2"};
    Web_Session session("alice");
    EXPECT_EQ(run(session), 401);
    keep("C2");
    EXPECT_EQ(run(session), 200);
    EXPECT_EQ(seen_, " body; C2 body; ");
}

TEST_F(WebSessionTest, ACookieOfAnotherUserIsNotLoggedIn) {
    keep("C1", "bob");
    singleton<PasswordManagerImpl>().savePassword("bob", "secret");
    EXPECT_EQ(run("C1"), 401);
    EXPECT_EQ(seen_, "C1 body; ");
}

TEST_F(WebSessionTest, WhatAnotherServerHasGivenStaysThere) {
    const std::string here = serverOfOptions();
    singleton<CookieManagerImpl>().saveCookie("alice", "A1", "another.example:80");
    singleton<PasswordManagerImpl>().savePassword("alice", "secret", "another.example:80");
    Web_Session session("alice");
    EXPECT_EQ(run(session), 401);
    EXPECT_EQ(run("C1"), 401) << "and its password is none";
    // Nor where the other server is the one that is set, and was when the session began.
    singleton<OptionsImpl>().setServerInfo("s", "another.example", 80);
    Web_Session early("alice");
    EXPECT_EQ(early.cookie(), "A1");
    EXPECT_EQ(run(early), 401);
    EXPECT_EQ(run("C1"), 401);
    // Nor the password where this server's own cookie is refused.
    singleton<CookieManagerImpl>().saveCookie("alice", "C2", here);
    EXPECT_EQ(run("C2"), 401);
    EXPECT_EQ(seen_, " body; C1 body;  body; C1 body; C2 body; ");
    EXPECT_TRUE(singleton<CookieManagerImpl>().isCookieValid("A1"));
}

// A run goes on at its server when another one has been set meanwhile.
TEST_F(WebSessionTest, ALoginIsOneAtTheServerOfTheSession) {
    keep("C1");
    keepPassword("secret");
    const std::string server = serverOfOptions();
    singleton<OptionsImpl>().setServerInfo("s", "another.example", 80);
    EXPECT_EQ(run("C1"), 200);
    EXPECT_EQ(seen_, "C1 body; Login; N1 body; ");
    EXPECT_EQ(kept(), "") << "the new session is none of the other's";
    std::string cookie;
    EXPECT_TRUE(singleton<CookieManagerImpl>().findCookie("alice", cookie, server));
    EXPECT_EQ(cookie, "N1");
}

// The server counts failed logins: neither a job that retries nor the resident may lock a user out.
TEST_F(WebSessionTest, ARefusedPasswordIsTriedOnce) {
    keep("C1");
    keepPassword("old");
    EXPECT_EQ(run("C1"), 401);
    EXPECT_EQ(run("C1"), 401);
    singleton<CookieManagerImpl>().removeAllCookie();
    EXPECT_EQ(Web_Login::renew("alice", nullptr), withHttpMark(401));
    keep("C2");
    EXPECT_EQ(run("C2"), 401);
    EXPECT_EQ(seen_, "C1 body; Login; C1 body; C2 body; ");
    keepPassword("secret");
    EXPECT_EQ(run("C2"), 200);
    // The user's own login is asked of the server whatever was refused before, and counts.
    keepPassword("old");
    valid_.clear();
    EXPECT_EQ(run("N1"), 401);
    seen_.clear();
    EXPECT_EQ(Web_Login::login("alice", "old", nullptr), Web_Login::End::failed);
    EXPECT_EQ(GetLastError(), withHttpMark(401));
    EXPECT_EQ(Web_Login::login("alice", "secret", nullptr), Web_Login::End::done);
    EXPECT_EQ(seen_, "Login; Login; ");
    EXPECT_EQ(run("N1"), 200);
    // What was refused once counts no more when the user has logged in with it.
    loginStatus_ = "401 Unauthorized";
    valid_.clear();
    EXPECT_EQ(run("N2"), 401);
    loginStatus_ = "200 OK";
    EXPECT_EQ(run("N2"), 401);
    EXPECT_EQ(Web_Login::login("alice", "secret", nullptr), Web_Login::End::done);
    valid_.clear();
    EXPECT_EQ(run("N3"), 200);
}

TEST_F(WebSessionTest, ACookieThatCannotBeWrittenDownIsTold) {
    keep("C1");
    keepPassword("secret");
    ASSERT_TRUE(rm_rf(dataPath(L"\\cookies"), true));
    createDirectories(dataPath(L"\\cookies"));
    const test::LogCapture log;
    EXPECT_EQ(run("C1"), 200);
    EXPECT_EQ(kept(), "N1");
    EXPECT_TRUE(log.begins("The new session of user {alice} could not be written down"));
}

TEST_F(WebSessionTest, WhoHasAPasswordAndNoSessionIsLoggedIn) {
    EXPECT_EQ(Web_Login::renew("alice", nullptr), 0U) << "no password";
    keepPassword("secret");
    loginStatus_ = "503 Service Unavailable";
    EXPECT_EQ(Web_Login::renew("alice", nullptr), withHttpMark(503));
    EXPECT_TRUE(Web_Login::needed("alice"));
    loginStatus_ = "200 OK";
    EXPECT_EQ(Web_Login::renew("alice", nullptr), 0U);
    EXPECT_EQ(kept(), "N1");
    EXPECT_EQ(Web_Login::renew("alice", nullptr), 0U) << "there is a session";
    EXPECT_EQ(seen_, "Login; Login; ");
}

// A login and a logout of the user's own wait for no renewal, and the session it brings is
// ended.
TEST_F(WebSessionTest, WhatTheUserDoesMeanwhileCounts) {
    for (const bool in : {true, false}) {
        SCOPED_TRACE(in);
        logOut();
        keep("C1");
        keepPassword("secret");
        seen_.clear();
        valid_.clear();
        logins_ = 0;
        bool first = true;
        before_ = [&](bool login) {
            if (!login || !std::exchange(first, false)) {
                return;
            }
            EXPECT_EQ(in ? Web_Login::login("alice", "secret", nullptr)
                         : Web_Login::logout("alice", nullptr),
                      Web_Login::End::done);
        };
        EXPECT_EQ(run("C1"), in ? 200 : 401);
        EXPECT_EQ(kept(), in ? "N1" : "");
        EXPECT_EQ(seen_, in ? "C1 body; Login; Login; N2 {}; N1 body; "
                            : "C1 body; C1 {}; Login; N1 {}; ");
        EXPECT_EQ(singleton<PasswordManagerImpl>().hasPassword("alice"), in);
    }
}

TEST_F(WebSessionTest, ALogoutForgetsWhatItCannotTellTheServer) {
    EXPECT_EQ(Web_Login::logout("alice", nullptr), Web_Login::End::nobody);
    keepPassword("secret");
    keep("C1");
    singleton<CookieManagerImpl>().saveCookie("alice", "A1", "another.example:80");
    refusal_ = "503 Service Unavailable";
    EXPECT_EQ(Web_Login::logout("alice", nullptr), Web_Login::End::failed);
    EXPECT_EQ(GetLastError(), withHttpMark(503));
    EXPECT_EQ(seen_, "C1 {}; ") << "another's session is no business of this one";
    EXPECT_FALSE(singleton<CookieManagerImpl>().isCookieValid("A1"));
    EXPECT_EQ(Web_Login::logout("alice", nullptr), Web_Login::End::nobody);
}

TEST_F(WebSessionTest, TellsItsHandler) {
    struct Handler : WebAuthHandler {
        void onError(unsigned long error) override { errors.push_back(error); }
        std::vector<unsigned long> errors;
    } handler;
    keep("C1");
    keepPassword("secret");
    const auto runWith = [&](WebClientEventHandler* set) {
        Web_Session session("alice", "C1");
        session.set_handler(set);
        return run(session);
    };
    EXPECT_EQ(runWith(nullptr), 401);
    EXPECT_EQ(seen_, "C1 body; ");
    loginStatus_ = "503 Service Unavailable";
    EXPECT_EQ(runWith(&handler), 401);
    loginStatus_ = "200 OK";
    loginsAreGood_ = false;
    EXPECT_EQ(runWith(&handler), 401);
    EXPECT_EQ(handler.newCookie(), "N1");
    EXPECT_EQ(handler.errors, (std::vector<unsigned long>{withHttpMark(503), withHttpMark(401)}));
}

// Of several refused at the same moment one logs in, and the others wait for it, as long as they
// need not stop: here at a server that stalls.
TEST_F(WebSessionTest, ARenewalWaitsForAnotherOfItsUser) {
    // Only who waits asks it.
    struct Waiting : interrupter {
        bool interrupted() const override { return asked.set(), stops; }
        mutable test::Signal asked;
        bool stops = false;
    } other;
    const std::string server = serverOfOptions();
    test::Signal stop;
    const interrupter first(stop.handle());
    std::string cookie;
    const auto renew = [&] {
        Web_Server_Invoker invoker;
        WebAuthHandler handler;
        EXPECT_TRUE(aimAtServerOfOptions(invoker));
        uint32_t error = 0;
        return Web_Login::renew({"alice", server, "C1", handler, invoker, &other}, cookie, error);
    };
    keep("C1");
    keepPassword("secret");
    for (const bool stops : {true, false}) {
        SCOPED_TRACE(stops);
        test::Signal loggingIn;
        test::Signal go;
        before_ = [&](bool login) {
            if (login) {
                loggingIn.set();
                go.wait();
            }
        };
        logins_ = 0;
        int status = -1;
        DWORD error = 0;
        {
            const std::jthread one([&] {
                Web_Session session("alice", "C1");
                session.set_interrupter(&first);
                status = run(session);
                error = GetLastError();
            });
            EXPECT_TRUE(loggingIn.wait());
            other.stops = stops;
            other.asked.reset();
            std::jthread waits([&] {
                EXPECT_EQ(renew(),
                          stops ? Web_Login::Renewal::stopped : Web_Login::Renewal::stored);
            });
            EXPECT_TRUE(other.asked.wait());
            if (stops) {
                waits.join();  // while the login is still under way
                stop.set();
            } else {
                go.set();
            }
        }
        go.set();
        EXPECT_EQ(status, stops ? 0 : 200);
        EXPECT_EQ(!stops || error == ERROR_CANCELLED, true);
        EXPECT_EQ(kept(), stops ? "C1" : cookie);
        stop.reset();
    }
    EXPECT_EQ(std::count(seen_.begin(), seen_.end(), 'L'), 2) << seen_;
}

}  // namespace
}  // namespace dorvo
