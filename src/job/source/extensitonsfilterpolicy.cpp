#include "job/source/extensitonsfilterpolicy.h"

#include <windows.h>

#include <exception>
#include <string_view>
#include <system_error>

#include "base/handle.h"

namespace dorvo {
namespace {

// The standard library may match by recursion, a few stack frames a character: names above this
// length are matched on a thread with a stack for the longest there are.
constexpr size_t longestOnThisStack = 300;
constexpr SIZE_T longNameStack = SIZE_T{512} << 20;  // reserved; used only as deep as it goes

struct Match {
    std::wstring_view name;
    const std::wregex& pattern;
    bool matched = false;
    std::exception_ptr failure;

    void run() { matched = std::regex_match(name.begin(), name.end(), pattern); }
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

std::wstring ExtensitonsFilterPolicy::pattern(bool includeMode,
                                              const std::vector<std::wstring>& extensions) {
    constexpr std::wstring_view everything = L".*";
    std::wstring pattern(everything);
    wchar_t separator = L'(';
    for (const std::wstring& extension : extensions) {
        const size_t start = extension.find_first_not_of(L".*");
        if (start != std::wstring::npos) {
            pattern += separator;
            pattern.append(extension, start);
            separator = L'|';
        }
    }
    if (pattern.size() == everything.size()) {
        return includeMode ? pattern : std::wstring();
    }
    return pattern + L")$";
}

ExtensitonsFilterPolicy::ExtensitonsFilterPolicy(bool includeMode,
                                                 const std::vector<std::wstring>& extensions)
    : includeMode_(includeMode),
      pattern_(pattern(includeMode, extensions),
               std::regex_constants::ECMAScript | std::regex_constants::icase) {}

ExtensitonsFilterPolicy::~ExtensitonsFilterPolicy() = default;
ExtensitonsFilterPolicy::ExtensitonsFilterPolicy(const ExtensitonsFilterPolicy&) = default;
ExtensitonsFilterPolicy& ExtensitonsFilterPolicy::operator=(const ExtensitonsFilterPolicy&) =
    default;

bool ExtensitonsFilterPolicy::isInclude(const wchar_t* name) {
    Match match{name, pattern_, false, nullptr};
    if (match.name.size() <= longestOnThisStack) {
        match.run();
    } else {
        runOnLargeStack(match);
    }
    return match.matched == includeMode_;
}

}  // namespace dorvo
