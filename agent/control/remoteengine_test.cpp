// The resident's engine from the other side of the port, and the file that leads to it.
#include "control/remoteengine.h"

#include <gtest/gtest.h>

#include <fstream>

#include "base/paths.h"
#include "control/controlclient.h"
#include "control/controlserver.h"
#include "engine/fakeengine.h"
#include "support/file_access.h"
#include "support/signal.h"

namespace dorvo::agent {
namespace {

using test::accessTo;
using test::Signal;

class Remote : public testing::Test {
protected:
    Remote() {
        std::wstring directory;
        EXPECT_TRUE(dataDirectory(directory) && createDirectories(directory));
    }
    ~Remote() override { DeleteFileW(ControlFile::path().c_str()); }

    FakeEngine engine;
    EventLog events;
    ControlServer server{engine, events};
    RemoteEngine remote{server.address()};
};

TEST_F(Remote, ASubscriptionMissesNothingAndHearsOfTheEnd) {
    std::string heard;
    Signal last;
    Signal gone;
    const auto subscription = remote.subscribe([&](const std::string& text) {
        heard += text + ",";
        if (text == "last") {
            last.set();
        } else if (text.empty()) {
            gone.set();
        }
    });
    std::string told;
    for (int i = 0; i < 500; ++i) {
        told += std::to_string(i) + ",";
        events.deliver(std::to_string(i));
    }
    events.deliver("last");
    EXPECT_TRUE(last.wait());
    {
        const auto brief = remote.subscribe([](const std::string& text) { FAIL() << text; });
    }
    server.stop();
    EXPECT_TRUE(gone.wait());
    EXPECT_EQ(heard, told + "last,,");
    EXPECT_THROW(remote.subscribe([](const std::string&) {}), ResidentGone);
}

TEST_F(Remote, IsFoundByTheControlFile) {
    EXPECT_EQ(RemoteEngine::connect(), nullptr);
    {
        const ControlFile file(server.address());
        const auto found = RemoteEngine::connect();
        ASSERT_TRUE(found);
        found->tell(JobVerb::pause, "J");
        EXPECT_EQ(engine.takeNote(), "tell 2 J");
    }
    EXPECT_EQ(GetFileAttributesW(ControlFile::path().c_str()), INVALID_FILE_ATTRIBUTES);
    const auto [number, secret, sign] = server.address();
    const std::string port = "{\"port\":" + std::to_string(number);
    const std::string token = ",\"token\":\"" + secret + "\"";
    const std::string proof = ",\"proof\":\"" + sign + "\"}";
    const auto found = [](const std::string& text) {
        std::ofstream(ControlFile::path().c_str(), std::ios::binary) << text;
        return RemoteEngine::connect() != nullptr;
    };
    const std::string rest = token + proof;
    const std::string other = R"(,"token":"x")" + proof;
    const std::string another = token + R"(,"proof":"x"})";
    EXPECT_TRUE(found(port + rest));
    for (const std::string& text : {std::string(), std::string("["), std::string(10'000, 'x'),
                                    port + proof, port + token + "}", R"({"port":0)" + rest,
                                    R"({"port":65536)" + rest, port + other, port + another}) {
        EXPECT_FALSE(found(text)) << text;
    }
    // What a resident that died has left.
    const ControlFile file(server.address());
    server.stop();
    EXPECT_EQ(RemoteEngine::connect(), nullptr);
}

// Wine keeps no entry of a group, and lets root open everything: only Windows proves the rest.
TEST_F(Remote, TheControlFileIsForTheOwnerAndAdministrators) {
    for (const wchar_t* there : {L"", L".new"}) {
        std::ofstream((ControlFile::path() + there).c_str()) << "open to all";
    }
    const ControlFile file(server.address());
    const std::wstring access = accessTo(ControlFile::path());
    EXPECT_EQ(access.find(L";;;WD)"), std::wstring::npos) << toUtf8(access);
    EXPECT_EQ(access.find(L";;;BU)"), std::wstring::npos) << toUtf8(access);
    EXPECT_NE(access.find(L"(A;;FA;;;SY)"), std::wstring::npos) << toUtf8(access);
}

}  // namespace
}  // namespace dorvo::agent
