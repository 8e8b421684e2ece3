// Keeps, or leaves out, the names that end in one of a list of extensions.
//
// The extensions *.txt, .txt and txt mean the same; the dot is no part of what is compared, so that
// "mytxt" ends in txt too. Upper and lower case count as equal. An extension is a piece of a
// regular expression and is not escaped. An empty list lets everything pass. Immutable.
#pragma once

#include <regex>
#include <string>
#include <vector>

#include "job/source/filterpolicy.h"

namespace dorvo {

class DORVO_JOB_API ExtensitonsFilterPolicy : public FilterPolicy {
public:
    // Throws std::regex_error when the extensions make no regular expression.
    ExtensitonsFilterPolicy(bool includeMode, const std::vector<std::wstring>& extensions);
    ~ExtensitonsFilterPolicy() override;
    ExtensitonsFilterPolicy(const ExtensitonsFilterPolicy&);
    ExtensitonsFilterPolicy& operator=(const ExtensitonsFilterPolicy&);

    bool isInclude(const wchar_t* name) override;

    // The regular expression of a list.
    static std::wstring pattern(bool includeMode, const std::vector<std::wstring>& extensions);

private:
    bool includeMode_;
    std::wregex pattern_;
};

}  // namespace dorvo
