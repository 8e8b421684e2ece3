#include "text/consoleterminal.h"

#include <algorithm>
#include <array>
#include <optional>

#include "base/text.h"
#include "text/format.h"

namespace dorvo::agent {
namespace {

// Gives a console a mode, and its own again whatever happens.
class ModeChange {
public:
    ModeChange(HANDLE console, DWORD on, DWORD off = 0) : console_(console) {
        done_ = GetConsoleMode(console_, &mode_) != 0 &&
                SetConsoleMode(console_, (mode_ & ~off) | on) != 0;
    }
    ~ModeChange() {
        if (done_) {
            SetConsoleMode(console_, mode_);
        }
    }
    ModeChange(const ModeChange&) = delete;
    ModeChange& operator=(const ModeChange&) = delete;

    bool done() const { return done_; }

private:
    HANDLE console_;
    DWORD mode_ = 0;
    bool done_ = false;
};

constexpr const char* red = "\x1b[91m";
constexpr const char* yellow = "\x1b[93m";
constexpr const char* plain = "\x1b[0m";

bool coloursWanted() {
    return GetEnvironmentVariableW(L"NO_COLOR", nullptr, 0) <= 1;  // not set, or empty
}

// Whether the console takes escape sequences, which older systems' consoles show as they are.
bool takesColours(HANDLE console) {
    return coloursWanted() && ModeChange(console, ENABLE_VIRTUAL_TERMINAL_PROCESSING).done();
}

void dropLineEnd(std::wstring& text) {
    while (!text.empty() && (text.back() == L'\n' || text.back() == L'\r')) {
        text.pop_back();
    }
}

}  // namespace

ConsoleTerminal::ConsoleTerminal()
    : in_(standard(STD_INPUT_HANDLE)),
      out_(standard(STD_OUTPUT_HANDLE)),
      error_(standard(STD_ERROR_HANDLE)) {}

ConsoleTerminal::~ConsoleTerminal() {
    ConsoleTerminal::status({});
}

void ConsoleTerminal::out(std::string_view text) {
    line(out_, text, nullptr);
}

void ConsoleTerminal::warn(std::string_view text) {
    line(out_, text, yellow);
}

void ConsoleTerminal::error(std::string_view text) {
    line(error_, text, red);
}

size_t ConsoleTerminal::width() const {
    constexpr size_t usual = 80;
    CONSOLE_SCREEN_BUFFER_INFO info;
    if (!out_.console || GetConsoleScreenBufferInfo(out_.handle, &info) == 0) {
        return usual;
    }
    const int columns = info.srWindow.Right - info.srWindow.Left + 1;
    return columns > 1 ? static_cast<size_t>(columns) : usual;
}

void ConsoleTerminal::status(std::string_view text) {
    if (!out_.console || (text.empty() && statusWidth_ == 0)) {
        return;
    }
    const size_t columns = columnsOf(text);
    std::string drawn = "\r";
    drawn.append(text);
    if (columns < statusWidth_) {
        drawn.append(statusWidth_ - columns, ' ');
    }
    if (text.empty()) {
        drawn += '\r';
    }
    write(out_, drawn);
    statusWidth_ = columns;
}

bool ConsoleTerminal::readSecret(std::string_view prompt, std::string& secret) {
    if (!in_.console) {
        return false;
    }
    write(error_, prompt);
    constexpr DWORD longest = 512;
    std::array<wchar_t, longest> typed{};
    DWORD count = 0;
    bool read = false;
    {
        const ModeChange hidden(in_.handle, ENABLE_LINE_INPUT | ENABLE_PROCESSED_INPUT,
                                ENABLE_ECHO_INPUT);
        read = ReadConsoleW(in_.handle, typed.data(), longest, &count, nullptr) != 0;
    }
    write(error_, "\r\n");
    std::wstring text(typed.data(), count);
    dropLineEnd(text);
    secret = toUtf8(text);
    SecureZeroMemory(typed.data(), typed.size() * sizeof(wchar_t));
    SecureZeroMemory(text.data(), text.size() * sizeof(wchar_t));
    return read && !secret.empty();
}

bool ConsoleTerminal::readLine(std::string& line) {
    line.clear();
    constexpr size_t longest = 4096;
    char next = 0;
    DWORD count = 0;
    bool any = false;
    while (line.size() < longest && ReadFile(in_.handle, &next, 1, &count, nullptr) != 0 &&
           count == 1) {
        any = true;
        if (next == '\n') {
            break;
        }
        line += next;
    }
    if (!line.empty() && line.back() == '\r') {
        line.pop_back();
    }
    return any;
}

ConsoleTerminal::Stream ConsoleTerminal::standard(DWORD which) {
    HANDLE handle = GetStdHandle(which);
    DWORD mode = 0;
    const bool console = GetConsoleMode(handle, &mode) != 0;
    const bool colours = console && which != STD_INPUT_HANDLE && takesColours(handle);
    return {handle, console, colours};
}

void ConsoleTerminal::write(const Stream& stream, std::string_view text) {
    constexpr size_t most = 8192;  // what a console takes in one call has a limit
    const auto each = [](auto all, auto put) {
        while (!all.empty()) {
            DWORD written = 0;
            const auto piece = all.substr(0, most);
            if (!put(piece.data(), static_cast<DWORD>(piece.size()), &written) || written == 0) {
                return;
            }
            all.remove_prefix(std::min<size_t>(written, piece.size()));
        }
    };
    if (stream.console) {
        const std::wstring wide = toWide(text);
        each(std::wstring_view(wide), [&](const wchar_t* data, DWORD size, DWORD* written) {
            return WriteConsoleW(stream.handle, data, size, written, nullptr) != 0;
        });
    } else {
        each(text, [&](const char* data, DWORD size, DWORD* written) {
            return WriteFile(stream.handle, data, size, written, nullptr) != 0;
        });
    }
}

void ConsoleTerminal::line(const Stream& stream, std::string_view text, const char* colour) {
    status({});
    std::string whole(text);
    std::optional<ModeChange> escapes;
    if (colour != nullptr && stream.colours && out_.console) {
        escapes.emplace(stream.handle, ENABLE_VIRTUAL_TERMINAL_PROCESSING);
        whole = colour + whole + plain;
    }
    if (whole.empty() || whole.back() != '\n') {
        whole += '\n';
    }
    write(stream, whole);
}

}  // namespace dorvo::agent
