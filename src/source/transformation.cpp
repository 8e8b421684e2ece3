#include "source/transformation.h"

#include <cryptopp/aes.h>
#include <cryptopp/files.h>
#include <cryptopp/filters.h>
#include <cryptopp/modes.h>
#include <cryptopp/zlib.h>

#include <exception>
#include <functional>
#include <istream>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>

#include "base/handle_streambuf.h"
#include "base/last_error.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/text.h"

namespace dorvo {
namespace {

// What the buffer throws passes through the stream to the reader.
class ReadHandleStream : public std::istream {
public:
    ReadHandleStream(std::wstring_view path, interrupter* stop)
        : std::istream(nullptr), buffer_(path, stop) {
        rdbuf(&buffer_);
        exceptions(std::ios::badbit);
        if (!buffer_.is_open()) {
            setstate(std::ios::failbit);
        }
    }
    const read_handle_streambuf& buffer() const { return buffer_; }

private:
    read_handle_streambuf buffer_;
};

class WriteHandleStream : public std::ostream {
public:
    explicit WriteHandleStream(std::wstring_view path) : std::ostream(nullptr), buffer_(path) {
        rdbuf(&buffer_);
        if (!buffer_.is_open()) {
            setstate(std::ios::failbit);
        }
    }
    const write_handle_streambuf& buffer() const { return buffer_; }

private:
    write_handle_streambuf buffer_;
};

// The code of a read that failed, 1223 after an interruption.
DWORD readError(const ReadHandleStream& in) {
    return in.buffer().interrupted() ? DWORD{ERROR_CANCELLED} : in.buffer().error();
}

// Each of a path and a reason.
struct TransformWords {
    using Line = LogText<std::string, std::string>;
    Line sourceNotOpened;
    Line targetNotOpened;
    Line failed;
};

bool notOpened(TransformWords::Line words, const wchar_t* path, DWORD error) {
    return logFailed(error, words, toUtf8(path), errorText(error));
}

// Has `pump` carry a source into a target; `readFailed` and `writeFailed` give the codes of what
// has failed there. What it throws, or a source that is not read to its end, is a failure, with 13
// where the data itself was at fault. False is logged and leaves the thread's last error, true
// leaves 0.
bool carry(const wchar_t* source, TransformWords::Line failed, const std::function<void()>& pump,
           const std::function<DWORD()>& readFailed, const std::function<DWORD()>& writeFailed) {
    try {
        pump();
        // The chain takes a read that fails for the end of the file.
        if (const DWORD error = readFailed(); error != ERROR_SUCCESS) {
            throw std::runtime_error(errorText(error));
        }
    } catch (const std::exception& failure) {
        DWORD error = readFailed();
        error = error != ERROR_SUCCESS ? error : writeFailed();
        error = error != ERROR_SUCCESS ? error : DWORD{ERROR_INVALID_DATA};
        if (error == ERROR_CANCELLED) {
            // The words are those of a restore for both; readers of the log look for them.
            log(LogLevel::error, "Failed to decrypt and decompress %s, user cancelled.\n",
                toUtf8(source));
        } else {
            log(LogLevel::error, failed, toUtf8(source), failure.what());
        }
        SetLastError(error);
        return false;
    }
    SetLastError(ERROR_SUCCESS);
    return true;
}

TransformWords backupWords() {
    return {.sourceNotOpened = "Failed to open source %s, %s\n",
            .targetNotOpened = "Failed to open target %s, %s\n",
            .failed = "Failed to compress and encrypt %s, %s.\n"};
}

TransformWords restoreWords() {
    return {.sourceNotOpened = "Failed to target file %s, %s.\n",
            .targetNotOpened = "Failed to open target %s, %s.\n",
            .failed = "Failed to decrypt and decompress %s, %s.\n"};
}

// Opens both files and carries one into the other. `finish`, where there is one, gets the target
// when all of it is written.
bool transformFile(const wchar_t* source, const wchar_t* target, interrupter* stop,
                   const TransformWords& words,
                   const std::function<void(std::istream& in, std::ostream& out)>& pump,
                   const std::function<void(HANDLE target)>& finish = nullptr) {
    ReadHandleStream in(source, stop);
    if (!in) {
        return notOpened(words.sourceNotOpened, source, in.buffer().error());
    }
    WriteHandleStream out(target);
    if (!out) {
        return notOpened(words.targetNotOpened, target, out.buffer().error());
    }
    const bool carried = carry(
        source, words.failed, [&] { pump(in, out); }, [&] { return readError(in); },
        [&] { return out.buffer().error(); });
    if (carried && finish) {
        finish(out.buffer().handle());
        SetLastError(ERROR_SUCCESS);
    }
    return carried;
}

constexpr unsigned deflateLevel = 6;
constexpr unsigned windowBits = 15;
constexpr bool detectUncompressible = true;
constexpr bool pumpAll = true;

// Each link of the chain owns the next.
void pack(const Transformation& with, std::istream& in, std::ostream& out) {
    CryptoPP::CBC_Mode<CryptoPP::AES>::Encryption cipher(with.key.data(), with.key.size(),
                                                         with.iv.data());
    CryptoPP::BufferedTransformation* chain =
        new CryptoPP::StreamTransformationFilter(cipher, new CryptoPP::FileSink(out));
    if (with.compress != 0) {
        chain = new CryptoPP::ZlibCompressor(chain, deflateLevel, windowBits, detectUncompressible);
    }
    const CryptoPP::FileSource pumped(in, pumpAll, chain);
}

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

// `from`: what a source of the kind is made of.
template <class Source, class... From>
void unpack(const Transformation& with, std::ostream& out, From&&... from) {
    CryptoPP::CBC_Mode<CryptoPP::AES>::Decryption cipher(with.key.data(), with.key.size(),
                                                         with.iv.data());
    CryptoPP::BufferedTransformation* chain = new WholeSink(out);
    if (with.compress != 0) {
        chain = new CryptoPP::ZlibDecompressor(chain);
    }
    const Source pumped(std::forward<From>(from)..., pumpAll,
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

Transformation::Transformation(bool compressed, uint8_t fill) : compress(compressed ? 1 : 0) {
    key.fill(fill);
    iv.fill(fill);
}

Transformation::~Transformation() {
    SecureZeroMemory(key.data(), key.size());
    SecureZeroMemory(iv.data(), iv.size());
}

bool BackupTransformation::transform(const wchar_t* source, const wchar_t* target,
                                     const WIN32_FILE_ATTRIBUTE_DATA*, interrupter* stop) {
    return transformFile(source, target, stop, backupWords(),
                         [this](std::istream& in, std::ostream& out) { pack(*this, in, out); });
}

bool BackupTransformation::transform(const wchar_t* source, ItemPackage& target,
                                     interrupter* stop) {
    ReadHandleStream in(source, stop);
    if (!in) {
        return notOpened(backupWords().sourceNotOpened, source, in.buffer().error());
    }
    const auto pump = [&] {
        std::ostream out(&target.buffer());
        pack(*this, in, out);
        if (!target.end()) {
            throw std::runtime_error(errorText(target.error()));
        }
    };
    return carry(
        source, backupWords().failed, pump, [&] { return readError(in); },
        [&] { return target.error(); });
}

bool RestoreTransformation::transform(const wchar_t* source, const wchar_t* target,
                                      const WIN32_FILE_ATTRIBUTE_DATA* attributes,
                                      interrupter* stop) {
    return transformFile(
        source, target, stop, restoreWords(),
        [this](std::istream& in, std::ostream& out) {
            unpack<CryptoPP::FileSource>(*this, out, in);
        },
        [&](HANDLE written) {
            if (attributes != nullptr) {
                applyAttributes(target, written, *attributes);
            }
        });
}

bool RestoreTransformation::transform(std::span<const std::byte> package, const wchar_t* name,
                                      const wchar_t* target) {
    WriteHandleStream out(target);
    if (!out) {
        return notOpened(restoreWords().targetNotOpened, target, out.buffer().error());
    }
    const auto pump = [&] {
        unpack<CryptoPP::ArraySource>(
            *this, out, reinterpret_cast<const CryptoPP::byte*>(package.data()), package.size());
    };
    return carry(
        name, restoreWords().failed, pump, [] { return DWORD{ERROR_SUCCESS}; },
        [&] { return out.buffer().error(); });
}

}  // namespace dorvo
