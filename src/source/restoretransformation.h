// Package to file: decrypted, then decompressed when the flag is set.
#pragma once

#include "source/transformation.h"

namespace dorvo {

class RestoreTransformation : public Transformation {
public:
    // Key and IV are a fixed byte until the owner sets the real ones.
    explicit RestoreTransformation(bool compressed) : Transformation(compressed, 0xA5) {}

    // Gives the target the attributes and times when there are any; that these could not be set is
    // logged and no failure.
    bool transform(const wchar_t* source, const wchar_t* target,
                   const WIN32_FILE_ATTRIBUTE_DATA* attributes, interrupter* stop) override;
};

}  // namespace dorvo
