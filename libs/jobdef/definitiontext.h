// Makes a definition of its file's text. Pure.
#pragma once

#include <memory>
#include <string>

#include "jobdef/definitionfields.h"
#include "jobdef/jobdefinition.h"

namespace dorvo::jobdef {

// Null when the text is no definition; throws UnknownKind.
std::unique_ptr<JobDefinition> definitionFromText(const std::string& text);

}  // namespace dorvo::jobdef
