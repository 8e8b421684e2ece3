#include "cli/commandline.h"

#include <gmock/gmock.h>

#include "cli/commands.h"
#include "text/agenterror.h"
#include "text/faketerminal.h"

namespace dorvo::agent {
namespace {

using testing::ElementsAre;
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

TEST_F(CommandLine, SaysWhatIsWrongOrToDoFirstInOneSentence) {
    struct Row {
        std::vector<std::string> arguments;
        const char* says;
        int code = exitUsage;
    };
    for (const Row& row : {
             Row{{"bakcup"}, "'bakcup' is no command. See 'agent --help'."},
             Row{{"backup", "C:\\", "--frobnicate"}, "agent backup --help"},
             Row{{"backup", "--bogus"}, "'--bogus' is no option of 'agent backup'."},
             Row{{"--bogus"}, "'--bogus' is no option of 'agent'."},
             Row{{"service", "bogus"}, "'bogus' is no command of 'agent service'."},
             Row{{"service"}, "'agent service' needs a command."},
             Row{{"backup", "C:\\", "--weekly", "monday"},
                 "--weekly takes DAY HH:MM: 'monday' is only a part of it."},
             Row{{"restore", "latest", "--conflict", "maybe"},
                 "'maybe' is nothing that --conflict takes: it is keep, rename or overwrite."},
             Row{{"backup", "C:\\windows", "--local", "no such folder"},
                 "does not exist; looked for '"},
             Row{{"backup", "C:\\", "--local", "C:\\windows", "--daily", "24:00"}, "HH:MM"},
             Row{{"backup", "C:\\", "--daily", "10:00", "--no-schedule"}, "do not go together"},
             Row{{"backup", "C:\\windows", "--local", "Q:\\nowhere"}, "does not exist"},
             Row{{"backup", "C:\\windows", "--local", "C:\\windows\\win.ini"}, "is no folder"},
             Row{{"backup", "C:\\windows", "--local", "C:\\windows\\system32"}, "exclude add"},
             Row{{"backup", "C:\\windows", "--local", "C:\\", "--name", " "}, "cannot be blank"},
             Row{{"backup", "C:\\windows", "--local", "C:\\", "--skip-ext", "."}, "no file name"},
             Row{{"backup", "C:\\windows", "--local", "C:\\", "--only-ext", "txt,a(b"}, "'a(b'"},
             Row{{"restore", "latest", "--to", "C:\\a:b"}, "no path of a folder"},
             Row{{"restore", "latest", "--to", "C:\\windows\\win.ini"}, "is a file"},
             Row{{"restore", "latest", "--to", "C:\\windows\\win.ini\\a\\b"}, "win.ini' is a file"},
             Row{{"restore", "latest", "--to", "Q:\\a\\b"}, "The drive or share of 'Q:\\a\\b'"},
             Row{{"key", "import", "*", "--passphrase-stdin"}, "no path of a file"},
             Row{{"show", "x", "--runs", "many"},
                 "'many' is nothing that --runs takes: it is a whole number from 1 to 1000."},
             Row{{"jobs", "extra"}, "extra"},
             Row{{"jobs", "--json=maybe"}, "--json takes no value: leave '=maybe' out."},
             Row{{"exclude", "add", "C:\\*"}, "no path"},
             Row{{"exclude", "add", "C:\\a", "--job", ""}, "--job has an empty value"},
             Row{{"restore", "latest", "--to", ""}, "--to has an empty value"},
             Row{{"login", "alice", "--password-stdin"}, "agent server set HOST:PORT", exitFailed},
             Row{{"backup", "C:\\windows"}, "agent server set HOST:PORT", exitFailed},
             Row{{"restore", "latest"}, "agent server set HOST:PORT", exitFailed},
             Row{{"files", "latest", "--local", "C:\\windows"}, "no completed run", exitFailed},
             Row{{"key", "export", "C:\\x.key", "--user", "alice"},
                 "no key on this machine",
                 exitFailed},
             Row{{"exclude", "list", "--job", "docs"}, "no job 'docs'", exitFailed},
             Row{{"start", "docs", "--no-wait"}, "agent service install", exitFailed},
             Row{{"watch", "docs"}, "no job 'docs'", exitFailed},
             Row{{"remove", "docs"}, "no job 'docs'", exitFailed},
             Row{{"exclude", "remove", "C:\\nothing"}, "is not excluded", exitFailed},
         }) {
        EXPECT_EQ(run(row.arguments), row.code) << row.says;
        ASSERT_THAT(terminal_.errors, SizeIs(1)) << row.says;
        EXPECT_THAT(terminal_.errors[0], HasSubstr(row.says));
        EXPECT_EQ(terminal_.errors[0].find('\n'), std::string::npos);
        EXPECT_EQ(terminal_.errors[0].back(), '.');
        EXPECT_THAT(terminal_.lines, IsEmpty());
    }
}

TEST_F(CommandLine, EveryCommandHasAHelpWithAnExample) {
    EXPECT_EQ(run({"--help"}), exitDone);
    const std::string all = terminal_.lines.at(0);
    for (const auto& command : makeCommands()) {
        CLI::App app;
        const CLI::App* const parser = command->describe(app);
        const std::string name = parser->get_name();
        EXPECT_THAT(all, HasSubstr("\n  " + name + " "));
        std::vector<std::vector<std::string>> asked = {{name, "--help"}};
        for (const CLI::App* const below : parser->get_subcommands({})) {
            if (!below->get_group().empty()) {  // else it is not for people
                asked.push_back({name, below->get_name(), "--help"});
            }
        }
        for (const auto& words : asked) {
            EXPECT_EQ(run(words), exitDone) << name;
            EXPECT_THAT(terminal_.lines, ElementsAre(HasSubstr("Example:\n  agent " + name)));
            EXPECT_THAT(terminal_.errors, IsEmpty());
        }
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
