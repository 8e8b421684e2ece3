#include "support/scripted_server.h"
// The sockets' header comes before the others.
#include "storage/web_session.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <thread>

#include "base/http_error.h"
#include "http_util/command_to_server.h"
#include "http_util/http_connections.h"
#include "settings/cookiemanager.h"
#include "settings/passwordmanager.h"
#include "storage/web_exchange.h"
#include "support/log_capture.h"
#include "support/signal.h"
#include "support/store_test.h"

namespace dorvo {
namespace {

using Names = std::vector<std::string>;
using Do_Command = Command_To_Server<Request_T<std::string>, Response_T<std::string>>;

template <class T>
T& singleton() {
    return *ATL::CComSingleton<T, ATL::CComAutoCriticalSection>::instance();
}

// Plays the service: knows valid cookies and alice's password; a login makes the cookies N1, N2.
class WebSessionTest : public test::StoreTest {
protected:
    WebSessionTest() {
        singleton<CookieManagerImpl>().removeAllCookie();
        singleton<PasswordManagerImpl>().removePassword("alice");
        server_ = std::make_unique<test::ScriptedServer>(
            [this](test::ScriptedPeer& peer, int) { serve(peer); });
    }
    ~WebSessionTest() override {
        singleton<HTTP_Connections>().stop();
        server_.reset();
        singleton<CookieManagerImpl>().removeAllCookie();
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
            session.invoker().set_server("127.0.0.1", server_->port(), 0);
        }
        Do_Command command("Do");
        command.request().body("body");
        return session.run(command, &sent_) == 0 ? command.response().status() : 0;
    }
    int run(const std::string& cookie) {
        Web_Session session("alice", cookie);
        return run(session);
    }

    std::mutex lock_;  // guards seen_, valid_ and logins_
    Names seen_;       // "Login", or the cookie and the body of a command
    std::set<std::string> valid_;
    int logins_ = 0;
    std::string refusal_ = "401 Unauthorized";
    std::string loginStatus_ = "200 OK";
    bool loginsAreGood_ = true;
    std::function<void(bool login)> before_ = [](bool) {};
    uint64_t sent_ = 0;
    std::unique_ptr<test::ScriptedServer> server_;

private:
    void serve(test::ScriptedPeer& peer) {
        for (std::string request = peer.request(); !request.empty(); request = peer.request()) {
            const bool login = request.find("user/Login.php ") != std::string::npos;
            before_(login);
            const std::lock_guard guard(lock_);
            login ? answerLogin(peer, request) : answer(peer, request);
        }
    }
    void answerLogin(test::ScriptedPeer& peer, const std::string& request) {
        seen_.emplace_back("Login");
        EXPECT_EQ(request.find("Cookie: "), std::string::npos);
        const bool right = request.find(R"("password":"secret","user":"alice")") != request.npos;
        if (!right || loginStatus_ != "200 OK") {
            peer.answer("{}", right ? loginStatus_ : "401 Unauthorized");
            return;
        }
        const std::string cookie = "N" + std::to_string(++logins_);
        if (loginsAreGood_) {
            valid_.insert(cookie);
        }
        peer.answer("{}", "200 OK", "Set-Cookie: " + cookie + "\r\n");
    }
    void answer(test::ScriptedPeer& peer, const std::string& request) {
        const size_t at = request.find("Cookie: ");
        const std::string cookie =
            at == std::string::npos ? "" : request.substr(at + 8, request.find('\r', at) - at - 8);
        seen_.push_back(cookie + " " + request.substr(request.find("\r\n\r\n") + 4));
        peer.answer("{}", valid_.contains(cookie) ? "200 OK" : refusal_);
    }
};

TEST_F(WebSessionTest, ARefusedCommandIsRunAgainWithANewCookie) {
    struct Row {
        const char* name;
        Names stored;
        std::string valid;
        const char* password;
        int status;
        Names seen;
        std::string kept;
        const char* refusal = "401 Unauthorized";
        const char* login = "200 OK";
        bool good = true;
    };
    const char* const none = nullptr;
    const Row rows[] = {
        {"valid", {"C1"}, "C1", "secret", 200, {"C1 body"}, "C1"},
        {"expired", {"C1"}, "", "secret", 200, {"C1 body", "Login", "N1 body"}, "N1"},
        {"not acceptable",
         {"C1"},
         "",
         "secret",
         200,
         {"C1 body", "Login", "N1 body"},
         "N1",
         "406 Not Acceptable"},
        {"forbidden", {"C1"}, "", "secret", 403, {"C1 body"}, "C1", "403 Forbidden"},
        {"another job has logged in", {"C2"}, "C2", "secret", 200, {"C1 body", "C2 body"}, "C2"},
        {"and has expired too",
         {"C2"},
         "",
         "secret",
         200,
         {"C1 body", "C2 body", "Login", "N1 body"},
         "N1"},
        {"no password", {"C1"}, "", none, 401, {"C1 body"}, "C1"},
        {"wrong password", {"C1"}, "", "Secret", 401, {"C1 body", "Login"}, "C1"},
        {"too many logins",
         {"C1"},
         "",
         "secret",
         406,
         {"C1 body", "Login"},
         "C1",
         "406 Not Acceptable",
         "429 Too Many Requests"},
        {"logged out", {}, "", "secret", 401, {"C1 body"}, ""},
        {"refused in spite of it",
         {"C1"},
         "",
         "secret",
         401,
         {"C1 body", "Login", "N1 body"},
         "N1",
         "401 Unauthorized",
         "200 OK",
         false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        singleton<CookieManagerImpl>().removeAllCookie();
        singleton<PasswordManagerImpl>().removePassword("alice");
        for (const std::string& cookie : row.stored) {
            keep(cookie);
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

TEST_F(WebSessionTest, FollowingCommandsUseTheNewCookie) {
    keep("C1");
    keepPassword("secret");
    Web_Session session("alice");
    EXPECT_EQ(run(session), 200);
    EXPECT_EQ(session.cookie(), "N1");
    EXPECT_EQ(sent_, 8u);  // the body twice
    EXPECT_EQ(run(session), 200);
    EXPECT_EQ(seen_, (Names{"C1 body", "Login", "N1 body", "N1 body"}));
}

// Without a cookie its user has logged out, but may have logged in again meanwhile.
TEST_F(WebSessionTest, WithoutACookieNoLoginIsTried) {
    keepPassword("secret");
    valid_ = {"C2"};
    Web_Session session("alice");
    EXPECT_EQ(run(session), 401);
    keep("C2");
    EXPECT_EQ(run(session), 200);
    EXPECT_EQ(seen_, (Names{" body", "C2 body"}));
}

TEST_F(WebSessionTest, ACookieOfAnotherUserIsNotLoggedIn) {
    keep("C1", "bob");
    singleton<PasswordManagerImpl>().savePassword("bob", "secret");
    EXPECT_EQ(run("C1"), 401);
    EXPECT_EQ(seen_, Names{"C1 body"});
}

// The server counts failed logins: a job that retries must not lock its user out.
TEST_F(WebSessionTest, ARefusedPasswordIsTriedOnceASession) {
    keep("C1");
    keepPassword("old");
    EXPECT_EQ(run("C1"), 401);
    EXPECT_EQ(run("C1"), 401);
    EXPECT_EQ(seen_, (Names{"C1 body", "Login", "C1 body"}));
    keepPassword("secret");
    EXPECT_EQ(run("C1"), 200);
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
    EXPECT_EQ(seen_, Names{"C1 body"});
    loginStatus_ = "503 Service Unavailable";
    EXPECT_EQ(runWith(&handler), 401);
    loginStatus_ = "200 OK";
    loginsAreGood_ = false;
    EXPECT_EQ(runWith(&handler), 401);
    EXPECT_EQ(handler.newCookie(), "N1");
    EXPECT_EQ(handler.errors, (std::vector<unsigned long>{withHttpMark(503), withHttpMark(401)}));
}

// Several jobs of one user, refused at the same moment: one of them logs in for all.
TEST_F(WebSessionTest, OfSeveralRefusedAtOnceOneLogsIn) {
    constexpr int jobs = 3;
    keep("C1");
    keepPassword("secret");
    std::atomic<int> arrived = 0;
    test::Signal all;
    before_ = [&](bool login) {
        if (!login && arrived.fetch_add(1) + 1 == jobs) {
            all.set();
        }
        EXPECT_TRUE(all.wait());
    };
    std::vector<int> status(jobs);
    {
        std::vector<std::jthread> threads;
        threads.reserve(jobs);
        for (int& one : status) {
            threads.emplace_back([&] { one = run("C1"); });
        }
    }
    EXPECT_EQ(status, std::vector<int>(jobs, 200));
    EXPECT_EQ(logins_, 1);
    EXPECT_EQ(seen_.size(), size_t{2 * jobs + 1});
    EXPECT_EQ(kept(), "N1");
}

// A login at a server that stalls: the session that logs in stops, and so does the one that waits.
TEST_F(WebSessionTest, AStopBreaksOffALoginAndWaitingForOne) {
    keep("C1");
    keepPassword("secret");
    test::Signal stop;
    test::Signal done;
    const interrupter asked(stop.handle());
    std::atomic<int> commands = 0;
    test::Signal loggingIn;
    test::Signal otherRefused;
    before_ = [&](bool login) {
        if (login) {
            loggingIn.set();
            done.wait();
        } else if (++commands == 2) {
            otherRefused.set();
        }
    };
    const auto stopped = [&] {
        Web_Session session("alice", "C1");
        session.set_interrupter(&asked);
        return run(session) == 0 && GetLastError() == ERROR_CANCELLED;
    };
    bool first = false;
    bool second = false;
    {
        const std::jthread one([&] { first = stopped(); });
        EXPECT_TRUE(loggingIn.wait());
        const std::jthread other([&] { second = stopped(); });
        EXPECT_TRUE(otherRefused.wait());
        stop.set();
    }
    done.set();
    EXPECT_TRUE(first);
    EXPECT_TRUE(second);
    EXPECT_EQ(kept(), "C1");
}

}  // namespace
}  // namespace dorvo
