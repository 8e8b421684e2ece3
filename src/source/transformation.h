// Turns a file into a package or a package into a file, streaming, on the caller's thread. The
// package's form: docs/formats/package.md.
//
// An object keeps nothing between calls but flag, key and IV, which its owner sets before use; the
// key is wiped when the object goes.
#pragma once

#include <windows.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "base/interrupter.h"
#include "source/itempackage.h"

namespace dorvo {

class Transformation {
public:
    explicit Transformation(bool compressed, uint8_t fill = 0);
    virtual ~Transformation();
    Transformation(const Transformation&) = default;
    Transformation& operator=(const Transformation&) = default;

    // From the source file to the target file, which is made anew. `attributes` may be null. The
    // interrupter is borrowed, may be null and is asked every 2 MiB. False: logged, with the reason
    // in the last error, 1223 when the interrupter said stop and 13 for a damaged package or a
    // wrong key; the target is then as far as it was written.
    virtual bool transform(const wchar_t* source, const wchar_t* target,
                           const WIN32_FILE_ATTRIBUTE_DATA* attributes, interrupter* stop) = 0;

    // Bytes without alignment, one after the other.
    uint8_t compress;  // non-zero: the package is zlib-compressed
    std::array<uint8_t, 16> key;
    std::array<uint8_t, 16> iv;
};

// File to package: compressed when the flag is set, then encrypted.
class BackupTransformation : public Transformation {
public:
    explicit BackupTransformation(bool compressed = false) : Transformation(compressed) {}

    // Attributes are ignored. A source that cannot be read to its end is a failure, never a short
    // package.
    bool transform(const wchar_t* source, const wchar_t* target,
                   const WIN32_FILE_ATTRIBUTE_DATA* attributes, interrupter* stop) override;
    // The same into a package, which has begun and is whole when true comes back.
    bool transform(const wchar_t* source, ItemPackage& target, interrupter* stop);
};

// Package to file: decrypted, then decompressed when the flag is set.
class RestoreTransformation : public Transformation {
public:
    // Key and IV are a fixed byte until the owner sets the real ones.
    explicit RestoreTransformation(bool compressed) : Transformation(compressed, 0xA5) {}

    // Gives the target the attributes and times when there are any; that these could not be set is
    // logged and no failure.
    bool transform(const wchar_t* source, const wchar_t* target,
                   const WIN32_FILE_ATTRIBUTE_DATA* attributes, interrupter* stop) override;
    // The same from a package that is here; `name` is what the log calls it.
    bool transform(std::span<const std::byte> package, const wchar_t* name, const wchar_t* target);
};

}  // namespace dorvo
