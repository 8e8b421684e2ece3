#include "source/nameexpression.h"

#include <windows.h>

#include <algorithm>
#include <exception>
#include <locale>
#include <system_error>

#include "base/handle.h"

namespace dorvo {
namespace {

// The standard library may match by recursion, a few stack frames a character: names above this
// length are matched on a thread with a stack for the longest there are.
constexpr size_t longestOnThisStack = 300;
constexpr SIZE_T longNameStack = SIZE_T{512} << 20;  // reserved; used only as deep as it goes

constexpr wchar_t firstBeyondAscii = 0x80;

wchar_t mapped(DWORD mapping, wchar_t c) {
    wchar_t result = c;
    LCMapStringEx(LOCALE_NAME_INVARIANT, mapping, &c, 1, &result, 1, nullptr, nullptr, 0);
    return result;
}

// The C locale knows the case of ASCII alone. Lower case is that of the upper case, so that what
// counts as equal is what foldCase() makes equal.
class FoldingCtype : public std::ctype<wchar_t> {
protected:
    wchar_t do_toupper(wchar_t c) const override {
        return c < firstBeyondAscii ? ctype::do_toupper(c) : mapped(LCMAP_UPPERCASE, c);
    }
    wchar_t do_tolower(wchar_t c) const override {
        return c < firstBeyondAscii ? ctype::do_tolower(c)
                                    : mapped(LCMAP_LOWERCASE, mapped(LCMAP_UPPERCASE, c));
    }
    const wchar_t* do_toupper(wchar_t* low, const wchar_t* high) const override {
        std::transform(low, low + (high - low), low, [this](wchar_t c) { return toupper(c); });
        return high;
    }
    const wchar_t* do_tolower(wchar_t* low, const wchar_t* high) const override {
        std::transform(low, low + (high - low), low, [this](wchar_t c) { return tolower(c); });
        return high;
    }
};

// Where the bracket expression that begins at `start` ends, behind its last bracket.
size_t bracketEnd(std::wstring_view text, size_t start) {
    for (size_t i = start + 1; i < text.size(); ++i) {
        if (text[i] == L'\\') {
            ++i;
        } else if (text[i] == L'[' && i + 1 < text.size() &&
                   std::wstring_view(L":.=").find(text[i + 1]) != std::wstring_view::npos) {
            const wchar_t close[] = {text[i + 1], L']', L'\0'};
            i = std::min(text.find(close, i + 2), text.size() - 2) + 1;
        } else if (text[i] == L']') {
            return i + 1;
        }
    }
    return text.size();
}

// The library's `.` leaves out the ends of lines; "no character at all is left out" does not.
std::wstring withEveryCharacter(std::wstring_view text) {
    std::wstring result;
    for (size_t i = 0; i < text.size();) {
        size_t end = i + 1;
        if (text[i] == L'\\') {
            end = std::min(i + 2, text.size());
        } else if (text[i] == L'[') {
            end = bracketEnd(text, i);
        }
        result += text[i] == L'.' ? std::wstring_view(L"[^]") : text.substr(i, end - i);
        i = end;
    }
    return result;
}

struct Match {
    std::wstring_view name;
    const std::wregex& expression;
    bool matched = false;
    std::exception_ptr failure;

    void run() { matched = std::regex_match(name.begin(), name.end(), expression); }
};

DWORD WINAPI runMatch(void* argument) {
    auto* match = static_cast<Match*>(argument);
    try {
        match->run();
    } catch (...) {
        match->failure = std::current_exception();
    }
    return 0;
}

void runOnLargeStack(Match& match) {
    const KernelHandle thread(CreateThread(nullptr, longNameStack, runMatch, &match,
                                           STACK_SIZE_PARAM_IS_A_RESERVATION, nullptr));
    if (!thread) {
        throw std::system_error(static_cast<int>(GetLastError()), std::system_category());
    }
    WaitForSingleObject(thread.get(), INFINITE);
    if (match.failure) {
        std::rethrow_exception(match.failure);
    }
}

}  // namespace

NameExpression::NameExpression(std::wstring_view expression) {
    expression_.imbue(std::locale(std::locale::classic(), new FoldingCtype));
    expression_.assign(withEveryCharacter(expression),
                       std::regex_constants::ECMAScript | std::regex_constants::icase);
}

bool NameExpression::matches(std::wstring_view name) const {
    Match match{name, expression_, false, nullptr};
    if (name.size() <= longestOnThisStack) {
        match.run();
    } else {
        runOnLargeStack(match);
    }
    return match.matched;
}

}  // namespace dorvo
