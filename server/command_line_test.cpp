#include "command_line.h"

#include <gtest/gtest.h>

#include <vector>

namespace dorvo {

namespace {

using Words = std::vector<const char*>;

CommandLine parse(Words words) {
    words.insert(words.begin(), "storage-server");
    return parseCommandLine(static_cast<int>(words.size()), words.data());
}

TEST(CommandLine, ServesOrAddsAUser) {
    const CommandLine serve = parse({"--listen", "[::1]:0", "--data", "d", "--session-lifetime",
                                     "5", "--run-lifetime", "6", "--reserve", "3"});
    EXPECT_EQ(serve.verb, CommandLine::Verb::serve);
    EXPECT_EQ(serve.options.address + serve.options.data.string(), "::1d");
    EXPECT_EQ(serve.options.port, 0);
    EXPECT_EQ(serve.options.sessionLifetime, 5);
    EXPECT_EQ(serve.options.runLifetime, std::chrono::seconds(6));
    EXPECT_EQ(serve.options.reserve, 3 << 20U);
    EXPECT_FALSE(parse({}).options.reserve);
    for (const Words& words :
         {Words{"user", "add", "eve", "--data", "d"}, Words{"--data", "d", "user", "add", "eve"}}) {
        const CommandLine add = parse(words);
        EXPECT_EQ(add.verb, CommandLine::Verb::addUser);
        EXPECT_EQ(add.user + add.options.data.string(), "eved");
    }
    EXPECT_EQ(parse({}).options.port, 8080);
    const HttpLimits limits =
        parse({"--connections", "20", "--connections-per-address", "3"}).options.limits;
    EXPECT_EQ(limits.connections, 20U);
    EXPECT_EQ(limits.connectionsOfAddress, 3U);
    const CommandLine behind =
        parse({"--trusted-proxy", "127.0.0.1", "--trusted-proxy", "0:0::1", "--data", "d"});
    EXPECT_EQ(behind.options.limits.trustedProxies, (std::vector<std::string>{"127.0.0.1", "::1"}));
    EXPECT_EQ(parse({"--help"}).verb, CommandLine::Verb::print);
    EXPECT_TRUE(parse({"--version"}).text.starts_with("storage-server "));
}

TEST(CommandLine, WrongUsageIsOneSentence) {
    for (const Words& words :
         {Words{"--bogus"}, Words{"--listen"}, Words{"--listen", "8080"}, Words{"--listen", ":80"},
          Words{"--listen", "::1"}, Words{"--listen", "a:65536"}, Words{"--listen", "a:80x"},
          Words{"serve"}, Words{"user"}, Words{"user", "add"}, Words{"user", "add", "a", "b"},
          Words{"--session-lifetime", "0"}, Words{"--run-lifetime", "0"},
          Words{"--connections", "0"}, Words{"--trusted-proxy", "localhost"},
          Words{"--trusted-proxy"}, Words{"--reserve", "-1"}, Words{"--reserve", "x"}}) {
        try {
            parse(words);
            ADD_FAILURE() << words.back();
        } catch (const std::exception& error) {
            const std::string text = error.what();
            EXPECT_TRUE(!text.empty() && text.find('\n') == std::string::npos) << text;
        }
    }
}

}  // namespace

}  // namespace dorvo
