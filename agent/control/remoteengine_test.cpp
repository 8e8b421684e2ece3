// The resident's engine from the other side of the port, and the file that leads to it.
#include "control/remoteengine.h"

#include <aclapi.h>
#include <gtest/gtest.h>
#include <jobdef/jobdefinitionfactory.h>
#include <sddl.h>

#include <fstream>

#include "base/paths.h"
#include "control/controlclient.h"
#include "control/controlserver.h"
#include "control/notingengine.h"
#include "support/signal.h"

namespace dorvo::agent {
namespace {

using test::Signal;

class Remote : public testing::Test {
protected:
    Remote() {
        std::wstring directory;
        EXPECT_TRUE(dataDirectory(directory) && createDirectories(directory));
    }
    ~Remote() override { DeleteFileW(ControlFile::path().c_str()); }

    NotingEngine engine;
    EventLog events;
    ControlServer server{engine, events};
    RemoteEngine remote{server.address()};
};

TEST_F(Remote, EveryVerbReachesTheEngine) {
    const auto job = JobDefinitionFactory::createFromText(
        R"({"id":"J","name":"Größe","user":"u","type":1,"storage":"web","source":["C:/a"],)"
        R"("filterType":0,"extensions":[],"compress":true,"later":[1,null]})");
    ASSERT_TRUE(job);
    remote.submit(*job);
    EXPECT_EQ(engine.takeNote(), "submit " + job->text());
    remote.tell(JobVerb::start, "J1");
    remote.tell(JobVerb::resume, "J2");
    remote.tell(JobVerb::pause, "J3");
    remote.tell(JobVerb::stop, "J4");
    remote.tell(JobVerb::remove, "J5");
    EXPECT_EQ(engine.takeNote(), "tell 0 J1tell 1 J2tell 2 J3tell 3 J4tell 4 J5");
    remote.setServer("host", 65535, "n\"");
    remote.setSnapshots(true);
    remote.setSnapshots(false);
    EXPECT_EQ(engine.takeNote(), "server host 65535 n\"snapshots onsnapshots off");
    remote.login("u", "pässword");
    remote.logout("u");
    EXPECT_EQ(engine.takeNote(), "login u pässwordlogout u");
    const ImportedKeys keys = remote.importKeys(L"C:\\k\u00e4y", "phrase", "u");
    EXPECT_EQ(engine.takeNote(), "import C:\\käy phrase u");
    EXPECT_EQ(keys.user, "alice");
    EXPECT_EQ(keys.beside, 3U);
    try {
        remote.tell(JobVerb::pause, "bad");
        FAIL();
    } catch (const AgentError& error) {
        EXPECT_STREQ(error.what(), "There is no \"bad\"");
        EXPECT_EQ(error.code(), exitUsage);
    }
}

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
    EXPECT_TRUE(found(port + token + proof));
    for (const std::string& text :
         {std::string(), std::string("{"), std::string("[]"), std::string(10'000, 'x'),
          port + proof, port + token + "}", "{\"port\":0" + token + proof,
          "{\"port\":65536" + token + proof, port + ",\"token\":\"x\"" + proof,
          port + token + ",\"proof\":\"x\"}"}) {
        EXPECT_FALSE(found(text)) << text;
    }
    // What a resident that died has left.
    const ControlFile file(server.address());
    server.stop();
    EXPECT_EQ(RemoteEngine::connect(), nullptr);
}

std::wstring accessTo(const std::wstring& path) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    wchar_t* text = nullptr;
    GetNamedSecurityInfoW(path.c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr,
                          nullptr, nullptr, &descriptor);
    ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor, SDDL_REVISION_1,
                                                         DACL_SECURITY_INFORMATION, &text, nullptr);
    std::wstring access = text == nullptr ? L"" : text;
    LocalFree(text);
    LocalFree(descriptor);
    return access;
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
