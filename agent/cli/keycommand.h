// agent key export|import FILE: the user's encryption key, taken to a recovery file and back.
#pragma once

#include <string>

#include "cli/command.h"
#include "text/secret.h"

namespace dorvo::agent {

class KeyCommand : public Command {
public:
    CLI::App* describe(CLI::App& parent) override;
    int run(Terminal& terminal) override;

private:
    void exportKey(Terminal& terminal) const;
    void importKey(Terminal& terminal) const;
    // Asks on the terminal, at `twice` again for the same, or reads standard input.
    Secret readPassphrase(Terminal& terminal, bool twice) const;

    CLI::App* import_ = nullptr;  // owned by the parser
    std::string file_;
    std::string user_;
    bool passphraseFromInput_ = false;
};

}  // namespace dorvo::agent
