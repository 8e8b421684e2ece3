#include "source/filterpolicy.h"

#include <gtest/gtest.h>
#include <windows.h>

#include "base/handle.h"

namespace dorvo {
namespace {

using Extensions = std::vector<std::wstring>;

constexpr int include = 1;
constexpr int exclude = 2;

TEST(ExtensionFilter, TellsWhatBelongsToTheBackup) {
    struct Row {
        Extensions extensions;
        const wchar_t* name;
        int type;
        bool included;
    };
    const Row rows[] = {
        {{L"*.TXT", L".doc"}, L"notes.txt", include, true},
        {{L"*.TXT", L".doc"}, L"mytxt", include, true},
        {{L"*.TXT", L".doc"}, L"C:\\docs\\a.doc", include, true},
        {{L"*.TXT", L".doc"}, L"a.docx", include, false},
        {{}, L"anything", include, true},
        {{L"*.*"}, L"anything", exclude, true},
        {{L"*.*"}, L"", exclude, false},  // the empty pattern matches the empty name
        {{L"tmp"}, L"a.TMP", exclude, false},
        {{L"tmp"}, L"atmp", exclude, false},
        {{L"jpe?g"}, L"a.jpg", include, true},  // a piece of a regular expression
        // Case in other scripts, in endings, expressions and ranges: "тхт", "отч.ТХТ".
        {{L"\u0442\u0445\u0442"}, L"\u043e\u0442\u0447.\u0422\u0425\u0422", include, true},
        {{L"\u0442\u0445?\u0442"}, L"\u043e\u0442\u0447.\u0422\u0425\u0422", include, true},
        {{L"[\u0430-\u0444]x"}, L"a.\u0422X", include, true},
        {{L"[\u0430-\u0444]x"}, L"a.\u0425X", include, false},
        {{L"[\u0410-\u0424]x"}, L"a.\u0442X", include, true},
        {{L"\u00e9"}, L"caf.\u00c9", exclude, false},
        // Every character is one, also what ends a line elsewhere.
        {{L"txt"}, L"a\u2028b.txt", include, true},
        {{L"tx?t"}, L"a\u2028b\u2029c.txt", include, true},
        {{L"a.c"}, L"xa\u2029c", include, true},
        // A dot is itself in brackets and behind a backslash, any character elsewhere.
        {{L"a[.]c"}, L"xabc", include, false},
        {{L"a[[:d:].]c"}, L"xa.c", include, true},
        {{L"a[[:d:].]c"}, L"xabc", include, false},
        {{L"a\\.c"}, L"xabc", include, false},
        {{L"tar\\.gz"}, L"a.TAR.GZ", include, true},
        {{L"[\\].]z"}, L"a.z", include, true},
        {{L"tar.gz"}, L"a.TAR-GZ", include, true},
        // Both kinds in one list.
        {{L"doc", L"jpe?g"}, L"a.jpeg", include, true},
        {{L"doc", L"jpe?g"}, L"a.Doc", include, true},
        {{L"doc", L"jpe?g"}, L"a.doc.txt", exclude, true},
        {{L"longer-than-the-name"}, L"name", include, false},
        {{L"longest", L"c"}, L"a.longest", include, true},
    };
    for (const Row& row : rows) {
        const auto filter = FilterPolicyFactory::create(row.type, row.extensions);
        ASSERT_NE(filter, nullptr);
        EXPECT_EQ(filter->isInclude(row.name), row.included)
            << row.type << ' ' << testing::PrintToString(row.extensions) << ' '
            << testing::PrintToString(std::wstring(row.name));
    }
}

TEST(FilterFactory, MakesNoFilterForOtherTypesOrOfABrokenExpression) {
    for (const int type : {0, 3, -1}) {
        EXPECT_EQ(FilterPolicyFactory::create(type, {L"txt"}), nullptr) << type;
    }
    EXPECT_THROW(FilterPolicyFactory::create(include, {L"a(b"}), std::regex_error);
}

// Run on the smallest stack that a thread of the host may have.
TEST(ExtensionFilter, LongestNamesLeaveTheStackWhole) {
    const auto run = [](void*) -> DWORD {
        DWORD missed = 0;
        for (const size_t length : {255U, 300U, 301U, 4096U, 32760U}) {
            const std::wstring stem(length, L'a');
            for (const wchar_t* extension : {L"txt", L"(t|x)+", L"((t*x*)+)", L"(a|b)+txt"}) {
                ExtensitonsFilterPolicy filter(true, {extension, L"doc"});
                missed += filter.isInclude((stem + L"txt").c_str()) ? 0 : 1;
                missed += filter.isInclude((stem + L".DOC").c_str()) ? 0 : 1;
            }
        }
        return missed;
    };
    constexpr SIZE_T stack = 1 << 20;
    const KernelHandle thread(
        CreateThread(nullptr, stack, run, nullptr, STACK_SIZE_PARAM_IS_A_RESERVATION, nullptr));
    ASSERT_TRUE(thread);
    WaitForSingleObject(thread.get(), INFINITE);
    DWORD missed = 1;
    EXPECT_TRUE(GetExitCodeThread(thread.get(), &missed) != 0 && missed == 0);
}

}  // namespace
}  // namespace dorvo
