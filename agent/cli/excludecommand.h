// agent exclude add|remove|list: the paths that backups leave out, of all jobs or of one.
#pragma once

#include <string>

#include "cli/command.h"

namespace dorvo::agent {

class ExcludeCommand : public Command {
public:
    CLI::App* describe(CLI::App& parent) override;
    int run(Terminal& terminal) override;

private:
    int change(Terminal& terminal) const;
    int list(Terminal& terminal) const;
    std::string listName() const;

    CLI::App* add_ = nullptr;   // owned by the parser
    CLI::App* list_ = nullptr;  // owned by the parser
    std::string path_;
    std::string job_;
    bool json_ = false;
};

}  // namespace dorvo::agent
