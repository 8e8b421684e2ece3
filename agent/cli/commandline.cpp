#include "cli/commandline.h"

#include <algorithm>
#include <regex>
#include <sstream>

#include "text/agenterror.h"
#include "text/format.h"
#include "text/version.h"

namespace dorvo::agent {
namespace {

const CLI::App& deepest(const CLI::App& app) {
    const auto chosen = app.get_subcommands();
    return chosen.empty() ? app : deepest(*chosen.back());
}

// The command that the arguments had reached, "agent key export".
std::string reachedCommand(const CLI::App& app) {
    std::string name = app.get_name();
    for (const CLI::App* chosen : app.get_subcommands()) {
        name += " " + reachedCommand(*chosen);
    }
    return name;
}

bool isOption(const std::string& word) {
    return word.size() > 1 && word.front() == '-';
}

// What the parser could do nothing with.
std::string aboutRest(const CLI::App& app, const std::vector<std::string>& rest) {
    const std::string command = reachedCommand(app);
    const auto option = std::find_if(rest.begin(), rest.end(), isOption);
    if (option != rest.end()) {
        return "'" + *option + "' is no option of '" + command + "'";
    }
    const CLI::App& at = deepest(app);
    const bool lacksCommand = at.get_require_subcommand_min() > 0;
    if (lacksCommand && &at == &app) {
        return "'" + rest.front() + "' is no command";
    }
    return lacksCommand ? "'" + rest.front() + "' is no command of '" + command + "'"
                        : "'" + rest.front() + "' is more than '" + command + "' takes";
}

// The words behind an option, as far as the next one.
std::string typedFor(const std::string& option, const std::vector<std::string>& arguments) {
    std::string typed;
    auto word = std::find(arguments.begin(), arguments.end(), option);
    for (word = word == arguments.end() ? word : word + 1;
         word != arguments.end() && !isOption(*word); ++word) {
        typed += (typed.empty() ? "" : " ") + *word;
    }
    return typed;
}

// "a,b,c" as "a, b or c".
std::string choices(const std::string& list) {
    const size_t last = list.rfind(',');
    const std::regex comma(",");
    return last == std::string::npos ? list
                                     : std::regex_replace(list.substr(0, last), comma, ", ") +
                                           " or " + list.substr(last + 1);
}

// The parser names the option and has a rule; people have typed a value.
std::string inWords(const std::string& what, const std::vector<std::string>& arguments) {
    const std::regex member(R"((\S+): (.*) not in \{(.*)\})");
    const std::regex range(R"((\S+): Value (.*) not in range (\S+) to (\S+))");
    const std::regex flag(R"(Could not convert: (\S+) = (.*))");
    const std::regex missing(R"((\S+): \d+ required (.*) missing)");
    const std::regex excludes(R"((\S+) excludes (\S+))");
    std::smatch part;
    const auto refusal = [&] {
        return "'" + part.str(2) + "' is nothing that " + part.str(1) + " takes: it is ";
    };
    if (std::regex_match(what, part, member)) {
        return refusal() + choices(part.str(3));
    }
    if (std::regex_match(what, part, range)) {
        return refusal() + "a whole number from " + part.str(3) + " to " + part.str(4);
    }
    if (std::regex_match(what, part, flag)) {
        return part.str(1) + " takes no value: leave '=" + part.str(2) + "' out";
    }
    if (std::regex_match(what, part, missing)) {
        const std::string typed = typedFor(part.str(1), arguments);
        return part.str(1) + " takes " + part.str(2) +
               (typed.empty() ? "" : ": '" + typed + "' is only a part of it");
    }
    if (std::regex_match(what, part, excludes)) {
        return part.str(1) + " and " + part.str(2) + " do not go together";
    }
    return what;
}

// What was wrong with what was typed, as the parser's failure and the words tell: a sentence
// without its end. `app` has parsed the arguments, which are in the order of the command line.
std::string usageError(const CLI::App& app, const CLI::ParseError& problem,
                       const std::vector<std::string>& arguments) {
    const std::vector<std::string> rest = app.remaining(true);
    if (!rest.empty()) {
        return aboutRest(app, rest);
    }
    const bool lacksCommand = deepest(app).get_require_subcommand_min() > 0;
    if (lacksCommand && dynamic_cast<const CLI::RequiredError*>(&problem) != nullptr) {
        return "'" + reachedCommand(app) + "' needs a command";
    }
    // Only the parser's first line says what is wrong.
    const std::string what = problem.what();
    return inWords(what.substr(0, what.find('\n')), arguments);
}

// An empty value is most often a variable that was not set: taken for an option left out, it would
// mean another place, job or user than the one that was meant.
void refuseEmptyValues(const CLI::App& app) {
    for (const CLI::Option* option : app.get_options()) {
        for (const std::string& value : option->results()) {
            if (value.empty()) {
                throw AgentError(option->get_name() + " has an empty value", exitUsage);
            }
        }
    }
    for (const CLI::App* chosen : app.get_subcommands()) {
        refuseEmptyValues(*chosen);
    }
}

std::string sentence(std::string text) {
    return text.empty() || text.back() == '.' ? text : text + ".";
}

int refuse(Terminal& terminal, const std::string& text, int code) {
    terminal.error("agent: " + printable(sentence(text)));
    return code;
}

}  // namespace

int runCommandLine(const std::vector<std::string>& arguments,
                   const std::vector<std::unique_ptr<Command>>& commands, Terminal& terminal) {
    CLI::App app("Backs up this machine to a storage server.", "agent");
    app.allow_windows_style_options(false);  // "/data" is a path
    app.require_subcommand(1);
    app.set_help_flag("-h,--help", "Show this help");
    app.set_version_flag("--version", std::string("agent ") + agentVersion,
                         "Show the version of this program");
    app.footer(
        "Each command has a help of its own: agent backup --help\n"
        "Exit codes: 0 done, 1 failed, 2 wrong usage, 3 done but some items failed, 4 paused or "
        "cancelled");
    std::vector<const CLI::App*> parsers;
    parsers.reserve(commands.size());
    for (const auto& command : commands) {
        parsers.push_back(command->describe(app));
    }
    try {
        app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
        refuseEmptyValues(app);
        for (size_t i = 0; i < commands.size(); ++i) {
            if (parsers[i]->parsed()) {
                return commands[i]->run(terminal);
            }
        }
        return exitUsage;
    } catch (const CLI::CallForHelp&) {
        const CLI::App& asked = deepest(app);
        const std::string above = reachedCommand(app);
        terminal.out(
            asked.help(&asked == &app ? std::string() : above.substr(0, above.rfind(' '))));
        return exitDone;
    } catch (const CLI::CallForVersion& answer) {
        terminal.out(answer.what());
        return exitDone;
    } catch (const CLI::ParseError& problem) {
        return refuse(terminal,
                      sentence(usageError(app, problem, arguments)) + " See '" +
                          reachedCommand(app) + " --help'.",
                      exitUsage);
    } catch (const AgentError& problem) {
        return refuse(terminal, problem.what(), problem.code());
    } catch (const std::exception& problem) {
        return refuse(terminal, std::string("Unexpected failure: ") + problem.what(), exitFailed);
    }
}

}  // namespace dorvo::agent
