// Makes a definition of its file's text. Pure.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>

#include "jobdef/jobdefinition.h"

namespace dorvo::jobdef {

// What a definition says is none of this version's: a later one may know it.
struct UnknownKind : std::runtime_error {
    using runtime_error::runtime_error;
};

// Null when the text is no definition; throws UnknownKind.
std::unique_ptr<JobDefinition> definitionFromText(const std::string& text);

}  // namespace dorvo::jobdef
