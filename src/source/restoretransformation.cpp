#include "source/restoretransformation.h"

#include <cryptopp/aes.h>
#include <cryptopp/files.h>
#include <cryptopp/filters.h>
#include <cryptopp/modes.h>
#include <cryptopp/zlib.h>

#include "base/error_text.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/text.h"
#include "source/transformfile.h"

namespace dorvo {
namespace {

constexpr bool pumpAll = true;

// The target of a package. The decompressor hands on as they are the bytes that stand behind the
// compressed ones: they are damage, not content.
class WholeSink : public CryptoPP::FileSink {
public:
    using FileSink::FileSink;

    size_t Put2(const CryptoPP::byte* bytes, size_t length, int messageEnd,
                bool blocking) override {
        if (ended_ && length != 0) {
            throw CryptoPP::Exception(CryptoPP::Exception::INVALID_DATA_FORMAT,
                                      "There are bytes behind the end of the content");
        }
        ended_ = ended_ || messageEnd != 0;
        return FileSink::Put2(bytes, length, messageEnd, blocking);
    }

private:
    bool ended_ = false;
};

// Each link of the chain owns the next.
void pump(const Transformation& with, std::istream& in, std::ostream& out) {
    CryptoPP::CBC_Mode<CryptoPP::AES>::Decryption cipher(with.key.data(), with.key.size(),
                                                         with.iv.data());
    CryptoPP::BufferedTransformation* chain = new WholeSink(out);
    if (with.compress != 0) {
        chain = new CryptoPP::ZlibDecompressor(chain);
    }
    const CryptoPP::FileSource pumped(in, pumpAll,
                                      new CryptoPP::StreamTransformationFilter(cipher, chain));
}

void logAttributeFailure(const wchar_t* target) {
    const DWORD error = GetLastError();
    log(LogLevel::warning, "Failed to set attributes of '%s', err=%d, %s.\n", toUtf8(target), error,
        errorText(error));
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
    return transformFile(
        source, target, stop,
        {.sourceNotOpened = "Failed to target file %s, %s.\n",
         .targetNotOpened = "Failed to open target %s, %s.\n",
         .failed = "Failed to decrypt and decompress %s, %s.\n"},
        [this](std::istream& in, std::ostream& out) { pump(*this, in, out); },
        [&](HANDLE written) {
            if (attributes != nullptr) {
                applyAttributes(target, written, *attributes);
            }
        });
}

}  // namespace dorvo
