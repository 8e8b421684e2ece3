// Another terminal whose lines begin with a name, for the lines of several jobs side by side. It
// redraws nothing.
#pragma once

#include <string>
#include <utility>

#include "text/terminal.h"

namespace dorvo::agent {

class PrefixTerminal : public Terminal {
public:
    // The terminal is borrowed.
    PrefixTerminal(Terminal& terminal, std::string prefix)
        : terminal_(terminal), prefix_(std::move(prefix)) {}

    void out(std::string_view text) override { terminal_.out(prefix_ + std::string(text)); }
    void warn(std::string_view text) override { terminal_.warn(prefix_ + std::string(text)); }
    void error(std::string_view text) override { terminal_.error(prefix_ + std::string(text)); }
    bool live() const override { return false; }
    size_t width() const override { return terminal_.width(); }
    void status(std::string_view) override {}
    bool readSecret(std::string_view prompt, std::string& secret) override {
        return terminal_.readSecret(prompt, secret);
    }
    bool readLine(std::string& line) override { return terminal_.readLine(line); }

private:
    Terminal& terminal_;
    const std::string prefix_;
};

}  // namespace dorvo::agent
