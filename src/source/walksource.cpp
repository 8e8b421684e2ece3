#include "source/walksource.h"

#include "source/sourcewalk.h"

namespace dorvo {

void walkSource(const std::vector<std::wstring>& sources, FilterPolicy* filter,
                SourceWalker* walker) {
    if (walker == nullptr) {
        return;
    }
    SourceWalk::Rules rules;
    rules.filter = filter;
    SourceWalk(*walker, rules).walk(sources);
}

}  // namespace dorvo
