#include "source/filterpolicy.h"

#include <algorithm>

#include "base/text.h"

namespace dorvo {

FilterPolicy::~FilterPolicy() = default;

ExtensitonsFilterPolicy::ExtensitonsFilterPolicy(bool includeMode,
                                                 const std::vector<std::wstring>& extensions)
    : includeMode_(includeMode) {
    std::wstring expression;
    for (const std::wstring& extension : extensions) {
        const size_t start = extension.find_first_not_of(L".*");
        if (start == std::wstring::npos) {
            continue;
        }
        std::wstring ending = extension.substr(start);
        if (ending.find_first_of(L"^$\\.*+?()[]{}|") != std::wstring::npos) {
            expression += expression.empty() ? L".*(" : L"|";
            expression += ending;
        } else {
            foldCase(ending);
            longestEnding_ = std::max(longestEnding_, ending.size());
            endings_.push_back(std::move(ending));
        }
    }
    if (!expression.empty()) {
        expression_.emplace(expression + L")$");
    }
}

ExtensitonsFilterPolicy::~ExtensitonsFilterPolicy() = default;
ExtensitonsFilterPolicy::ExtensitonsFilterPolicy(const ExtensitonsFilterPolicy&) = default;
ExtensitonsFilterPolicy& ExtensitonsFilterPolicy::operator=(const ExtensitonsFilterPolicy&) =
    default;

bool ExtensitonsFilterPolicy::isInclude(const wchar_t* name) {
    return matches(name) == includeMode_;
}

bool ExtensitonsFilterPolicy::matches(std::wstring_view name) const {
    if (endings_.empty() && !expression_) {
        return includeMode_ || name.empty();
    }
    // Extensions and names are folded a character for a character, so the end is enough.
    std::wstring end(name.substr(name.size() - std::min(name.size(), longestEnding_)));
    foldCase(end);
    return std::any_of(endings_.begin(), endings_.end(),
                       [&](const std::wstring& ending) { return end.ends_with(ending); }) ||
           (expression_ && expression_->matches(name));
}

std::unique_ptr<FilterPolicy> FilterPolicyFactory::create(
    int type, const std::vector<std::wstring>& extensions) {
    if (type != BackupJobDefinition::extensionsOnly &&
        type != BackupJobDefinition::extensionsLeftOut) {
        return nullptr;
    }
    return std::make_unique<ExtensitonsFilterPolicy>(type == BackupJobDefinition::extensionsOnly,
                                                     extensions);
}

std::unique_ptr<FilterPolicy> FilterPolicyFactory::create(const BackupJobDefinition& definition) {
    return create(definition.filterType(), definition.extensions());
}

}  // namespace dorvo
