#include "job/dropteller.h"

#include <jobdef/jobdefinitionfactory.h>

#include <algorithm>
#include <vector>

#include "base/error_text.h"
#include "base/log.h"
#include "base/text.h"
#include "base/thread.h"
#include "job/jobdirectories.h"
#include "job/storagefactory.h"

namespace dorvo {
namespace {

constexpr DWORD againMs = 60 * 60 * 1000;

// Each with the folder of its definition.
template <class Visit>
bool anyDrops(const Visit& visit) {
    bool any = false;
    for (const std::wstring& directory : jobDirectories()) {
        const PendingDrops drops(toUtf8(directory.substr(directory.rfind(L'\\') + 1)));
        any = (drops.any() && visit(directory, drops)) || any;
    }
    for (const std::wstring& folder : PendingDrops::handedOn()) {
        const PendingDrops drops(folder);
        any = (drops.any() && visit(folder, drops)) || any;
    }
    return any;
}

}  // namespace

DropTeller::DropTeller(Drop drop)
    : drop_(drop ? std::move(drop)
                 : [](const JobDefinition& definition, const PendingDrop& pending,
                      HANDLE stop) { return dropBackupRun(definition, pending, stop, 0); }),
      stopEvent_(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
      wakeEvent_(CreateEventW(nullptr, FALSE, FALSE, nullptr)) {}

void DropTeller::wake() {
    const std::lock_guard guard(lock_);
    if (thread_ != nullptr) {
        SetEvent(wakeEvent_.get());
        return;
    }
    if (!anyDrops([](const std::wstring&, const PendingDrops&) { return true; })) {
        return;
    }
    ResetEvent(stopEvent_.get());
    if (!startThread(body, this, thread_)) {
        log(LogLevel::error,
            "Failed to start the thread that has runs dropped, error-code = %d, %m.\n",
            static_cast<int>(GetLastError()));
    }
}

void DropTeller::signalStop() {
    SetEvent(stopEvent_.get());
}

void DropTeller::stop() {
    const std::lock_guard guard(lock_);
    signalStop();
    joinThread(thread_);
}

DWORD WINAPI DropTeller::body(void* self) {
    static_cast<DropTeller*>(self)->run();
    return 0;
}

void DropTeller::run() {
    for (;;) {
        const DWORD timeout = tellAll() ? againMs : INFINITE;
        const HANDLE either[] = {stopEvent_.get(), wakeEvent_.get()};
        if (WaitForMultipleObjects(2, either, FALSE, timeout) == WAIT_OBJECT_0) {
            return;
        }
    }
}

// Whether some are left.
bool DropTeller::tellAll() {
    return anyDrops([this](const std::wstring& folder, const PendingDrops& drops) {
        return tell(folder + L"\\def", drops);
    });
}

bool DropTeller::tell(const std::wstring& definition, const PendingDrops& drops) {
    const std::unique_ptr<JobDefinition> of = JobDefinitionFactory::create(definition);
    if (!of) {
        const DWORD error = GetLastError();
        log(LogLevel::error,
            "Failed to read whose runs are to be dropped {%s}, error-code = %d, %s.\n",
            toUtf8(definition).c_str(), static_cast<int>(error), errorText(error).c_str());
        return true;
    }
    drops.tell([&](const PendingDrop& pending) {
        if (WaitForSingleObject(stopEvent_.get(), 0) == WAIT_OBJECT_0) {
            SetLastError(ERROR_CANCELLED);
            return false;
        }
        return drop_(*of, pending, stopEvent_.get());
    });
    return drops.any();
}

}  // namespace dorvo
