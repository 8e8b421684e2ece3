#include "job/source/restoretransformation.h"

#include <cryptopp/aes.h>
#include <cryptopp/files.h>
#include <cryptopp/filters.h>
#include <cryptopp/modes.h>
#include <cryptopp/zlib.h>

#include "base/error_text.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/text.h"
#include "job/source/handlestreams.h"

namespace dorvo {
namespace {

constexpr bool pumpAll = true;

// Each link of the chain owns the next.
void pump(const Transformation& with, std::istream& in, std::ostream& out) {
    CryptoPP::CBC_Mode<CryptoPP::AES>::Decryption cipher(with.key.data(), with.key.size(),
                                                         with.iv.data());
    CryptoPP::BufferedTransformation* chain = new CryptoPP::FileSink(out);
    if (with.compress != 0) {
        chain = new CryptoPP::ZlibDecompressor(chain);
    }
    const CryptoPP::FileSource pumped(in, pumpAll,
                                      new CryptoPP::StreamTransformationFilter(cipher, chain));
}

void logAttributeFailure(const wchar_t* target) {
    const DWORD error = GetLastError();
    log(LogLevel::warning, "Failed to set attributes of '%s', err=%d, %s.\n",
        toUtf8(target).c_str(), error, errorText(error).c_str());
}

// Times come first, while nothing forbids writing them.
void applyAttributes(const wchar_t* target, HANDLE file, const WIN32_FILE_ATTRIBUTE_DATA& data) {
    if (SetFileTime(file, &data.ftCreationTime, &data.ftLastAccessTime, &data.ftLastWriteTime) ==
        0) {
        logAttributeFailure(target);
    }
    if (SetFileAttributesW(longPath(target).c_str(), data.dwFileAttributes) == 0) {
        logAttributeFailure(target);
    }
}

}  // namespace

bool RestoreTransformation::transform(const wchar_t* source, const wchar_t* target,
                                      const WIN32_FILE_ATTRIBUTE_DATA* attributes,
                                      interrupter* stop) {
    ReadHandleStream in(source, stop);
    if (!in) {
        const DWORD error = in.buffer().error();
        log(LogLevel::error, "Failed to target file %s, %s.\n", toUtf8(source).c_str(),
            errorText(error).c_str());
        SetLastError(error);
        return false;
    }
    WriteHandleStream out(target);
    if (!out) {
        const DWORD error = out.buffer().error();
        log(LogLevel::error, "Failed to open target %s, %s.\n", toUtf8(target).c_str(),
            errorText(error).c_str());
        SetLastError(error);
        return false;
    }
    try {
        pump(*this, in, out);
        throwIfCutOff(in);
    } catch (const std::exception& failure) {
        const DWORD error = chainError(in, out);
        if (error == ERROR_CANCELLED) {
            log(LogLevel::error, "Failed to decrypt and decompress %s, user cancelled.\n",
                toUtf8(source).c_str());
        } else {
            log(LogLevel::error, "Failed to decrypt and decompress %s, %s.\n",
                toUtf8(source).c_str(), failure.what());
        }
        SetLastError(error);
        return false;
    }
    if (attributes != nullptr) {
        applyAttributes(target, out.buffer().handle(), *attributes);
    }
    SetLastError(ERROR_SUCCESS);
    return true;
}

}  // namespace dorvo
