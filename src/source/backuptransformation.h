// File to package: compressed when the flag is set, then encrypted.
#pragma once

#include "source/transformation.h"

namespace dorvo {

class BackupTransformation : public Transformation {
public:
    explicit BackupTransformation(bool compressed = false) : Transformation(compressed) {}

    // Attributes are ignored. A source that cannot be read to its end is a failure, never a short
    // package.
    bool transform(const wchar_t* source, const wchar_t* target,
                   const WIN32_FILE_ATTRIBUTE_DATA* attributes, interrupter* stop) override;
};

}  // namespace dorvo
