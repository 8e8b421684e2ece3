#include "cli/usageerror.h"

#include <algorithm>
#include <regex>

namespace dorvo::agent {
namespace {

const CLI::App& deepest(const CLI::App& app) {
    const auto chosen = app.get_subcommands();
    return chosen.empty() ? app : deepest(*chosen.back());
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
    const std::regex number(R"(Could not convert: (\S+) = (.*))");
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
    if (std::regex_match(what, part, number)) {
        return refusal() + "a number";
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

}  // namespace

std::string reachedCommand(const CLI::App& app) {
    std::string name = app.get_name();
    for (const CLI::App* chosen : app.get_subcommands()) {
        name += " " + reachedCommand(*chosen);
    }
    return name;
}

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

}  // namespace dorvo::agent
