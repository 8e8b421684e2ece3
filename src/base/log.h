// The one logging function of the module, over ACE's log facility.
//
// A format is a literal with ACE's directives, and is checked against the arguments when it is
// compiled: a call whose arguments do not fit has no meaning, so it does not build.
//
//   %d %u     a number of up to 32 bits, an enumeration among them
//   %Q        a number of 64 bits
//   %s %C     text in UTF-8: std::string, const char*
//   %W        UTF-16 text: std::wstring, const wchar_t*
//   %m        the text of the thread's last error; no argument
//   %%, %}    what stands there, as ACE writes what is no directive; no argument
//
// Every line is prefixed with "@%t@", the thread's id. Lines end in "\n", but for the few that are
// read otherwise. Any thread may log; the thread's last error is kept.
#pragma once

#include <concepts>
#include <cstddef>
#include <string>
#include <string_view>
#include <type_traits>

namespace dorvo {

// ACE's priorities, which are those of the log file.
enum class LogLevel : int {
    trace = 02,
    debug = 04,
    information = 010,
    warning = 040,
    error = 0200,
};

// What an argument is to a format.
enum class LogKind { number, longNumber, text, wideText, none };

template <class T>
constexpr LogKind logKind() {
    if constexpr (std::is_convertible_v<const T&, std::string> && !std::is_null_pointer_v<T>) {
        return LogKind::text;
    } else if constexpr (std::is_convertible_v<const T&, std::wstring> &&
                         !std::is_null_pointer_v<T>) {
        return LogKind::wideText;
    } else if constexpr (std::is_enum_v<T> ||
                         (std::integral<T> && !std::same_as<T, bool> && !std::same_as<T, char> &&
                          !std::same_as<T, wchar_t>)) {
        return sizeof(T) <= sizeof(int) ? LogKind::number : LogKind::longNumber;
    } else {
        return LogKind::none;
    }
}

// Whether `format` has known directives only, one for each of the `count` arguments and of its
// kind.
constexpr bool fitsLog(std::string_view format, const LogKind* kinds, size_t count) {
    size_t taken = 0;
    for (size_t at = format.find('%'); at != format.npos; at = format.find('%', at + 2)) {
        LogKind wanted = LogKind::none;
        switch (at + 1 < format.size() ? format[at + 1] : '\0') {
            case 'd':
            case 'u': wanted = LogKind::number; break;
            case 'Q': wanted = LogKind::longNumber; break;
            case 's':
            case 'C': wanted = LogKind::text; break;
            case 'W': wanted = LogKind::wideText; break;
            case 'm':
            case '%':
            case '}': continue;
            default: return false;
        }
        if (taken == count || kinds[taken++] != wanted) {
            return false;
        }
    }
    return taken == count;
}

// A checked format. It takes literals only and may be handed on, stored and be constexpr.
template <LogKind... Kinds>
class LogFormat {
public:
    // NOLINTNEXTLINE(google-explicit-constructor): a literal is a format
    consteval LogFormat(const char* text) : text_(text) {
        constexpr LogKind kinds[] = {Kinds..., LogKind::none};
        if (!fitsLog(text, kinds, sizeof...(Kinds))) {
            throw "the format does not fit the arguments";
        }
    }
    constexpr const char* text() const { return text_; }

private:
    const char* text_;
};

// The format of a line with such arguments: LogText<std::string, int> for "Job {%s} has %d.\n".
template <class... Arguments>
using LogText = LogFormat<logKind<std::remove_cvref_t<Arguments>>()...>;

namespace log_detail {

// What ACE takes, in C's way.
inline const char* passed(const std::string& text) {
    return text.c_str();
}
inline const char* passed(const char* text) {
    return text;
}
inline const wchar_t* passed(const std::wstring& text) {
    return text.c_str();
}
inline const wchar_t* passed(const wchar_t* text) {
    return text;
}
template <class T>
requires std::integral<T> || std::is_enum_v<T>
constexpr auto passed(T number) {
    if constexpr (std::is_enum_v<T>) {
        return static_cast<std::underlying_type_t<T>>(number);
    } else {
        return number;
    }
}

void write(LogLevel level, const char* format, ...);
void setLastError(unsigned long code);

}  // namespace log_detail

template <class... Arguments>
void log(LogLevel level, std::type_identity_t<LogText<Arguments...>> format,
         const Arguments&... arguments) {
    log_detail::write(level, format.text(), log_detail::passed(arguments)...);
}

// Logs an error whose code is the thread's last error, which it keeps. Always false:
//     return logFailed("Failed to open {%s}, error-code = %d, %m.\n", name, GetLastError());
template <class... Arguments>
bool logFailed(std::type_identity_t<LogText<Arguments...>> format, const Arguments&... arguments) {
    log(LogLevel::error, format, arguments...);
    return false;
}

// The same for an error that is ours to tell: `code` becomes the thread's last error first.
template <class... Arguments>
bool logFailed(unsigned long code, std::type_identity_t<LogText<Arguments...>> format,
               const Arguments&... arguments) {
    log_detail::setLastError(code);
    return logFailed(format, arguments...);
}

// Traces a function's entry and exit with its name and source file.
class FunctionTrace {
public:
    FunctionTrace(const char* function, const char* file);
    ~FunctionTrace();
    FunctionTrace(const FunctionTrace&) = delete;
    FunctionTrace& operator=(const FunctionTrace&) = delete;

private:
    const char* function_;
};

// Brings ACE up once for the process. Everything that calls ACE directly calls this first; log()
// does so by itself. Never torn down: at process exit other threads are gone, and ACE would wait.
void startAce();

// Log lines go to the backend that ACE_Log_Msg::msg_backend names while the CUSTOM flag is set
// (see LogCapture in the tests), to standard error by default, nowhere after muteLog().
void muteLog();

}  // namespace dorvo
