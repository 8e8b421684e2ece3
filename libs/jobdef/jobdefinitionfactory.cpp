#include "jobdef/jobdefinitionfactory.h"

#include <windows.h>

#include "jobdef/definitionfile.h"
#include "jobdef/definitiontext.h"

namespace dorvo {

std::unique_ptr<JobDefinition> JobDefinitionFactory::create(const std::wstring& path) {
    std::string text;
    if (!jobdef::readFile(path, text)) {
        return nullptr;
    }
    return createFromText(text);
}

std::unique_ptr<JobDefinition> JobDefinitionFactory::createFromText(const std::string& text) {
    try {
        auto definition = jobdef::definitionFromText(text);
        if (definition == nullptr) {
            SetLastError(ERROR_INVALID_DATA);
        }
        return definition;
    } catch (const jobdef::UnknownKind&) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return nullptr;
    }
}

}  // namespace dorvo
