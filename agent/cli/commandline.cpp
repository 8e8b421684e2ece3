#include "cli/commandline.h"

#include <algorithm>
#include <sstream>

#include "cli/usageerror.h"
#include "text/agenterror.h"
#include "text/printable.h"
#include "text/version.h"

namespace dorvo::agent {
namespace {

const CLI::App& deepest(const CLI::App& app) {
    const auto chosen = app.get_subcommands();
    return chosen.empty() ? app : deepest(*chosen.back());
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
