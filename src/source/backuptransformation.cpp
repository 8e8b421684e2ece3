#include "source/backuptransformation.h"

#include <cryptopp/aes.h>
#include <cryptopp/files.h>
#include <cryptopp/filters.h>
#include <cryptopp/modes.h>
#include <cryptopp/zlib.h>

#include "source/transformfile.h"

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
    return transformFile(source, target, stop,
                         {.sourceNotOpened = "Failed to open source %s, %s\n",
                          .targetNotOpened = "Failed to open target %s, %s\n",
                          .failed = "Failed to compress and encrypt %s, %s.\n"},
                         [this](std::istream& in, std::ostream& out) { pump(*this, in, out); });
}

}  // namespace dorvo
