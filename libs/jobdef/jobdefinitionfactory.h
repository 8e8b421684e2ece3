// Makes definitions from files and from JSON text.
//
// A text that is no definition gives null with the last error ERROR_INVALID_DATA (13), one whose
// storage only a later version knows ERROR_NOT_SUPPORTED (50). A type that this version does not
// know gives a definition that only keeps what it read.
#pragma once

#include <memory>
#include <string>

#include "jobdef/jobdefinition.h"

namespace dorvo {

class DORVO_JOBDEF_API JobDefinitionFactory {
public:
    // Null with the last error set when the file cannot be read: another code than
    // ERROR_INVALID_DATA says nothing about what is in it.
    static std::unique_ptr<JobDefinition> create(const std::wstring& path);

    static std::unique_ptr<JobDefinition> createFromText(const std::string& text);
};

}  // namespace dorvo
