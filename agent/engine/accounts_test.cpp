#include "engine/accounts.h"

#include <gtest/gtest.h>

#include <future>

#include "support/scripted_server.h"
// The sockets' header comes before the others.
#include "agenterror.h"
#include "singletons.h"
#include "support/signal.h"

namespace dorvo::agent {
namespace {

using test::ScriptedPeer;
using test::ScriptedServer;
using test::Signal;

TEST(Accounts, ALoginWithoutAnAnswerHoldsNobodyUp) {
    Signal asked;
    ScriptedServer server([&](ScriptedPeer& peer, int connection) {
        peer.request();
        if (connection == 0) {
            asked.set();
            peer.drain();
        } else {
            peer.answer("{}", "200 OK", "Set-Cookie: DORVOSESSION=b\r\n");
        }
    });
    ASSERT_TRUE(options().setServerInfo("s", "127.0.0.1", server.port()));
    Accounts accounts;
    std::atomic<bool> gone = false;
    const auto login = [&] { accounts.login("alice", "password", [&] { return gone.load(); }); };
    auto stuck = std::async(std::launch::async, login);
    ASSERT_TRUE(asked.wait());
    auto other = std::async(std::launch::async, [&] {
        accounts.login("bob", "password");
        EXPECT_FALSE(Accounts::needsSession("bob"));
        return accounts.renew("bob");
    });
    EXPECT_EQ(other.wait_for(std::chrono::minutes(1)), std::future_status::ready);
    gone = true;  // whoever asked for it
    EXPECT_THROW(stuck.get(), AgentError);
    EXPECT_EQ(other.get(), 0u);
    std::string cookie;
    EXPECT_FALSE(cookies().findCookie("alice", cookie));
    EXPECT_TRUE(cookies().findCookie("bob", cookie));
}

}  // namespace
}  // namespace dorvo::agent
