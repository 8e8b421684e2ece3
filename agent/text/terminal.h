// Where a command's texts go and its secrets come from.
//
// Texts are UTF-8. One thread at a time.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace dorvo::agent {

class Terminal {
public:
    virtual ~Terminal() = default;

    // One or more lines on standard output or standard error; a line end is added. A status line
    // that stands is cleared first.
    virtual void out(std::string_view text) = 0;
    virtual void error(std::string_view text) = 0;
    // A line on standard output that warns.
    virtual void warn(std::string_view text) = 0;

    // True when standard output is a terminal, on which status() can redraw its line.
    virtual bool live() const = 0;
    // Columns of a line.
    virtual size_t width() const = 0;
    // Draws one line over the last one; an empty text clears it. Nothing when not live.
    virtual void status(std::string_view line) = 0;

    // Asks on the terminal for a text that is not shown while it is typed. False when standard
    // input is no terminal or nothing was entered.
    virtual bool readSecret(std::string_view prompt, std::string& secret) = 0;
    // The first line of standard input, without its line end. False when there is none.
    virtual bool readLine(std::string& line) = 0;
};

}  // namespace dorvo::agent
