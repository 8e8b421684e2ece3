#include "source/transformfile.h"

#include <exception>

#include "base/error_text.h"
#include "base/log.h"
#include "base/text.h"

namespace dorvo {
namespace {

bool notOpened(TransformWords::Line words, const wchar_t* path, DWORD error) {
    return logFailed(error, words, toUtf8(path), errorText(error));
}

}  // namespace

bool transformFile(const wchar_t* source, const wchar_t* target, interrupter* stop,
                   const TransformWords& words,
                   const std::function<void(std::istream& in, std::ostream& out)>& pump,
                   const std::function<void(HANDLE target)>& finish) {
    ReadHandleStream in(source, stop);
    if (!in) {
        return notOpened(words.sourceNotOpened, source, in.buffer().error());
    }
    WriteHandleStream out(target);
    if (!out) {
        return notOpened(words.targetNotOpened, target, out.buffer().error());
    }
    try {
        pump(in, out);
        throwIfCutOff(in);
    } catch (const std::exception& failure) {
        const DWORD error = chainError(in, out);
        if (error == ERROR_CANCELLED) {
            // The words are those of a restore for both; readers of the log look for them.
            log(LogLevel::error, "Failed to decrypt and decompress %s, user cancelled.\n",
                toUtf8(source));
        } else {
            log(LogLevel::error, words.failed, toUtf8(source), failure.what());
        }
        SetLastError(error);
        return false;
    }
    if (finish) {
        finish(out.buffer().handle());
    }
    SetLastError(ERROR_SUCCESS);
    return true;
}

}  // namespace dorvo
