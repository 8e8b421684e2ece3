// A regular expression over the names of files.
//
// Upper and lower case count as equal in every script, and `.` stands for every character, those
// that end a line included: a name has no lines. Immutable; any thread.
#pragma once

#include <regex>
#include <string>
#include <string_view>

namespace dorvo {

class NameExpression {
public:
    // The default grammar. Throws std::regex_error when it is no regular expression.
    explicit NameExpression(std::wstring_view expression);

    // The whole name, of up to 32767 characters, on whatever stack.
    bool matches(std::wstring_view name) const;

private:
    std::wregex expression_;
};

}  // namespace dorvo
