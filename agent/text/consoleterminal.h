// The process's standard streams: wide text on a console, UTF-8 bytes when redirected.
//
// On a console that takes colours, errors are red and warnings yellow, unless the variable NO_COLOR
// of the environment holds anything.
#pragma once

#include <windows.h>

#include "text/terminal.h"

namespace dorvo::agent {

class ConsoleTerminal : public Terminal {
public:
    ConsoleTerminal();
    ~ConsoleTerminal() override;
    ConsoleTerminal(const ConsoleTerminal&) = delete;
    ConsoleTerminal& operator=(const ConsoleTerminal&) = delete;

    void out(std::string_view text) override;
    void error(std::string_view text) override;
    void warn(std::string_view text) override;
    bool live() const override { return out_.console; }
    size_t width() const override;
    void status(std::string_view line) override;
    bool readSecret(std::string_view prompt, std::string& secret) override;
    bool readLine(std::string& line) override;

private:
    struct Stream {
        HANDLE handle;  // borrowed from the process
        bool console;
        bool colours;
    };

    static Stream standard(DWORD which);
    static void write(const Stream& stream, std::string_view text);
    // `colour`: the escape sequence of one, or null.
    void line(const Stream& stream, std::string_view text, const char* colour);

    Stream in_;
    Stream out_;
    Stream error_;
    size_t statusWidth_ = 0;  // columns that the standing status line covers
};

}  // namespace dorvo::agent
