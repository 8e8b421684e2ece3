// A terminal of the tests: collects what is written.
#pragma once

#include <string>
#include <vector>

#include "text/terminal.h"

namespace dorvo::agent {

class FakeTerminal : public Terminal {
public:
    explicit FakeTerminal(bool live = false) : live_(live) {}

    void out(std::string_view text) override { lines.emplace_back(text); }
    void error(std::string_view text) override { errors.emplace_back(text); }
    void warn(std::string_view text) override { warnings.emplace_back(text); }
    bool live() const override { return live_; }
    size_t width() const override { return 80; }
    void status(std::string_view line) override { statuses.emplace_back(line); }
    bool readSecret(std::string_view, std::string& secret) override {
        secret = typed;
        return !typed.empty();
    }
    bool readLine(std::string& line) override {
        line = input;
        return !input.empty();
    }

    std::vector<std::string> lines;
    std::vector<std::string> errors;
    std::vector<std::string> warnings;
    std::vector<std::string> statuses;
    std::string typed;
    std::string input;

private:
    bool live_;
};

}  // namespace dorvo::agent
