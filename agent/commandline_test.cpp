#include "commandline.h"

#include <gmock/gmock.h>

#include <iterator>
#include <sstream>

#include "commands.h"
#include "exitcode.h"
#include "faketerminal.h"

namespace dorvo::agent {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* emptyArray = "[\n]";

// Runs against the machine of the tests, on which no server is set and nobody has logged in.
class CommandLine : public testing::Test {
protected:
    int run(const std::vector<std::string>& arguments) {
        terminal_ = FakeTerminal();
        return runCommandLine(arguments, makeCommands(), terminal_);
    }

    FakeTerminal terminal_;
};

TEST_F(CommandLine, WrongUsageIsOneSentenceAndCode2) {
    struct Row {
        std::vector<std::string> arguments;
        const char* says;
    };
    for (const Row& row : {
             Row{{"bakcup"}, "'bakcup' is no command. See 'agent --help'."},
             Row{{"backup", "C:\\", "--frobnicate"}, "agent backup --help"},
             Row{{"backup", "C:\\", "--daily", "10:00"}, "not expected"},
             Row{{"backup", "C:\\windows", "--local", "Q:\\nowhere"}, "does not exist"},
             Row{{"backup", "C:\\windows", "--local", "C:\\windows\\win.ini"}, "is no folder"},
             Row{{"backup", "C:\\windows", "--local", "C:\\windows\\system32"}, "exclude add"},
             Row{{"restore", "latest", "--to", "C:\\a:b"}, "no path of a folder"},
             Row{{"restore", "latest", "--to", "C:\\windows\\win.ini"}, "is a file"},
             Row{{"key", "import", "*", "--passphrase-stdin"}, "no path of a file"},
             Row{{"show", "x", "--runs", "many"}, "many"},
             Row{{"jobs", "extra"}, "extra"},
             Row{{"exclude", "add", "C:\\*"}, "no path"},
         }) {
        EXPECT_EQ(run(row.arguments), exitUsage) << row.says;
        ASSERT_THAT(terminal_.errors, SizeIs(1)) << row.says;
        EXPECT_THAT(terminal_.errors[0], HasSubstr(row.says));
        EXPECT_EQ(terminal_.errors[0].find('\n'), std::string::npos);
        EXPECT_EQ(terminal_.errors[0].back(), '.');
        EXPECT_THAT(terminal_.lines, IsEmpty());
    }
}

TEST_F(CommandLine, EveryCommandHasAHelpWithAnExample) {
    for (const char* command :
         {"server", "server set", "login", "logout", "backup", "restore", "start", "resume", "jobs",
          "show", "instances", "files", "key", "key export", "key import", "exclude", "exclude add",
          "exclude remove", "exclude list"}) {
        std::istringstream words(command);
        std::vector<std::string> arguments(std::istream_iterator<std::string>(words), {});
        const std::string first = arguments.front();
        arguments.emplace_back("--help");
        EXPECT_EQ(run(arguments), exitDone) << command;
        ASSERT_THAT(terminal_.lines, SizeIs(1)) << command;
        EXPECT_THAT(terminal_.lines[0], HasSubstr("Example:\n  agent " + first));
        EXPECT_THAT(terminal_.errors, IsEmpty());
    }
    EXPECT_EQ(run({"--help"}), exitDone);
    EXPECT_THAT(terminal_.lines[0], HasSubstr("resume"));
}

TEST_F(CommandLine, SaysWhatToDoFirst) {
    struct Row {
        std::vector<std::string> arguments;
        const char* says;
    };
    for (const Row& row : {
             Row{{"login", "alice", "--password-stdin"}, "agent server set HOST:PORT"},
             Row{{"backup", "C:\\windows"}, "agent server set HOST:PORT"},
             Row{{"restore", "latest"}, "agent server set HOST:PORT"},
             Row{{"files", "latest", "--local", "C:\\windows"}, "no completed run"},
             Row{{"key", "export", "C:\\x.key", "--user", "alice"}, "no key on this machine"},
             Row{{"exclude", "list", "--job", "docs"}, "no job 'docs'"},
             Row{{"exclude", "remove", "C:\\nothing"}, "is not excluded"},
         }) {
        EXPECT_EQ(run(row.arguments), exitFailed) << row.says;
        ASSERT_THAT(terminal_.errors, SizeIs(1)) << row.says;
        EXPECT_THAT(terminal_.errors[0], HasSubstr(row.says));
    }
}

TEST_F(CommandLine, ExclusionsAreAddedOnceAndRemoved) {
    EXPECT_EQ(run({"jobs", "--json"}), exitDone);
    EXPECT_EQ(terminal_.lines, std::vector<std::string>{emptyArray});
    EXPECT_EQ(run({"exclude", "add", "c:/WINDOWS/no such folder/"}), exitDone);
    EXPECT_EQ(run({"exclude", "add", "C:\\windows\\NO such folder"}), exitDone);
    EXPECT_EQ(run({"exclude", "list"}), exitDone);
    EXPECT_EQ(terminal_.lines, std::vector<std::string>{"C:\\windows\\no such folder"});
    EXPECT_EQ(run({"exclude", "remove", "C:\\windows\\No such folder"}), exitDone);
    EXPECT_EQ(run({"exclude", "list", "--json"}), exitDone);
    EXPECT_EQ(terminal_.lines, std::vector<std::string>{emptyArray});
}

}  // namespace
}  // namespace dorvo::agent
