// Keeps, or leaves out, the names that end in one of a list of extensions.
//
// The extensions *.txt, .txt and txt mean the same; the dot is no part of what is compared, so that
// "mytxt" ends in txt too. Upper and lower case count as equal, as for excluded paths. An extension
// with characters of regular expressions is a piece of one and is not escaped. An empty list lets
// everything pass. Immutable.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "source/filterpolicy.h"
#include "source/nameexpression.h"

namespace dorvo {

class DORVO_JOB_API ExtensitonsFilterPolicy : public FilterPolicy {
public:
    // Throws std::regex_error when the extensions make no regular expression.
    ExtensitonsFilterPolicy(bool includeMode, const std::vector<std::wstring>& extensions);
    ~ExtensitonsFilterPolicy() override;
    ExtensitonsFilterPolicy(const ExtensitonsFilterPolicy&);
    ExtensitonsFilterPolicy& operator=(const ExtensitonsFilterPolicy&);

    bool isInclude(const wchar_t* name) override;

private:
    bool matches(std::wstring_view name) const;

    bool includeMode_;
    std::vector<std::wstring> endings_;  // case folded
    size_t longestEnding_ = 0;
    std::optional<NameExpression> expression_;  // of all extensions that are pieces of one
};

}  // namespace dorvo
