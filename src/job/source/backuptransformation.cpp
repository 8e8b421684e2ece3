#include "job/source/backuptransformation.h"

#include <cryptopp/aes.h>
#include <cryptopp/files.h>
#include <cryptopp/filters.h>
#include <cryptopp/modes.h>
#include <cryptopp/zlib.h>

#include "base/error_text.h"
#include "base/log.h"
#include "base/text.h"
#include "job/source/handlestreams.h"

namespace dorvo {
namespace {

constexpr unsigned deflateLevel = 6;
constexpr unsigned windowBits = 15;
constexpr bool detectUncompressible = true;
constexpr bool pumpAll = true;

// Each link of the chain owns the next.
void pump(const Transformation& with, std::istream& in, std::ostream& out) {
    CryptoPP::CBC_Mode<CryptoPP::AES>::Encryption cipher(with.key.data(), with.key.size(),
                                                         with.iv.data());
    CryptoPP::BufferedTransformation* chain =
        new CryptoPP::StreamTransformationFilter(cipher, new CryptoPP::FileSink(out));
    if (with.compress != 0) {
        chain = new CryptoPP::ZlibCompressor(chain, deflateLevel, windowBits, detectUncompressible);
    }
    const CryptoPP::FileSource pumped(in, pumpAll, chain);
}

}  // namespace

bool BackupTransformation::transform(const wchar_t* source, const wchar_t* target,
                                     const WIN32_FILE_ATTRIBUTE_DATA*, interrupter* stop) {
    ReadHandleStream in(source, stop);
    if (!in) {
        const DWORD error = in.buffer().error();
        log(LogLevel::error, "Failed to open source %s, %s\n", toUtf8(source).c_str(),
            errorText(error).c_str());
        SetLastError(error);
        return false;
    }
    WriteHandleStream out(target);
    if (!out) {
        const DWORD error = out.buffer().error();
        log(LogLevel::error, "Failed to open target %s, %s\n", toUtf8(target).c_str(),
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
            // The words are those of a restore; readers of the log look for them.
            log(LogLevel::error, "Failed to decrypt and decompress %s, user cancelled.\n",
                toUtf8(source).c_str());
        } else {
            log(LogLevel::error, "Failed to compress and encrypt %s, %s.\n", toUtf8(source).c_str(),
                failure.what());
        }
        SetLastError(error);
        return false;
    }
    SetLastError(ERROR_SUCCESS);
    return true;
}

}  // namespace dorvo
