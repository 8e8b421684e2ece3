// The filter of a backup: which entries of a walk belong to it, by their extensions.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/api.h"
#include "jobdef/backupjobdefinition.h"
#include "source/nameexpression.h"

namespace dorvo {

class DORVO_JOB_API FilterPolicy {
public:
    FilterPolicy() = default;
    FilterPolicy(const FilterPolicy&) = default;
    FilterPolicy& operator=(const FilterPolicy&) = default;
    virtual ~FilterPolicy();

    // `name` is a full path or an entry's bare name, up to 32767 characters.
    virtual bool isInclude(const wchar_t* name) = 0;
};

// Keeps, or leaves out, the names that end in one of a list of extensions.
//
// The extensions *.txt, .txt and txt mean the same; the dot is no part of what is compared, so that
// "mytxt" ends in txt too. Upper and lower case count as equal, as for excluded paths. An extension
// with characters of regular expressions is a piece of one and is not escaped. An empty list lets
// everything pass. Immutable.
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

// Makes the filter of a backup job; null means that everything passes. A list that makes no regular
// expression throws std::regex_error.
class DORVO_JOB_API FilterPolicyFactory {
public:
    // By BackupJobDefinition::FilterType; any other number is no filter.
    static std::unique_ptr<FilterPolicy> create(int type,
                                                const std::vector<std::wstring>& extensions);
    static std::unique_ptr<FilterPolicy> create(const BackupJobDefinition& definition);
};

}  // namespace dorvo
