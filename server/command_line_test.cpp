#include "command_line.h"

#include <gtest/gtest.h>

#include <vector>

namespace dorvo {

namespace {

CommandLine parse(std::vector<const char*> arguments) {
    arguments.insert(arguments.begin(), "storage-server");
    return parseCommandLine(static_cast<int>(arguments.size()), arguments.data());
}

TEST(CommandLine, ServesOrAddsAUser) {
    const CommandLine serve =
        parse({"--listen", "[::1]:0", "--data", "d", "--session-lifetime", "5"});
    EXPECT_EQ(serve.verb, CommandLine::Verb::serve);
    EXPECT_EQ(serve.options.address, "::1");
    EXPECT_EQ(serve.options.port, 0);
    EXPECT_EQ(serve.options.data, "d");
    EXPECT_EQ(serve.options.sessionLifetime, 5);

    for (const auto& arguments : {std::vector<const char*>{"user", "add", "eve", "--data", "d"},
                                  std::vector<const char*>{"--data", "d", "user", "add", "eve"}}) {
        const CommandLine add = parse(arguments);
        EXPECT_EQ(add.verb, CommandLine::Verb::addUser);
        EXPECT_EQ(add.user, "eve");
        EXPECT_EQ(add.options.data, "d");
    }
    EXPECT_EQ(parse({}).options.port, 8080);
    EXPECT_EQ(parse({"--help"}).verb, CommandLine::Verb::help);
}

TEST(CommandLine, WrongUsageIsOneSentence) {
    for (const auto& arguments :
         {std::vector<const char*>{"--bogus"}, std::vector<const char*>{"--listen"},
          std::vector<const char*>{"--listen", "8080"}, std::vector<const char*>{"--listen", ":80"},
          std::vector<const char*>{"--listen", "::1"},
          std::vector<const char*>{"--listen", "a:65536"},
          std::vector<const char*>{"--listen", "a:80x"}, std::vector<const char*>{"serve"},
          std::vector<const char*>{"user"}, std::vector<const char*>{"user", "add"},
          std::vector<const char*>{"user", "add", "a", "b"},
          std::vector<const char*>{"--session-lifetime", "0"}}) {
        try {
            parse(arguments);
            ADD_FAILURE() << arguments.back();
        } catch (const std::exception& error) {
            const std::string text = error.what();
            EXPECT_FALSE(text.empty());
            EXPECT_EQ(text.find('\n'), std::string::npos) << text;
        }
    }
}

}  // namespace

}  // namespace dorvo
