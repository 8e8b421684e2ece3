#include "job/dropteller.h"

#include "base/last_error.h"
#include "base/log.h"
#include "base/text.h"
#include "base/thread.h"
#include "job/jobdirectories.h"
#include "job/storagefactory.h"

namespace dorvo {

DropTeller::DropTeller(Drop drop, DWORD againMs)
    : drop_(drop ? std::move(drop) : Drop(dropBackupRun)),
      againMs_(againMs),
      stopEvent_(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
      wakeEvent_(CreateEventW(nullptr, FALSE, FALSE, nullptr)) {}

void DropTeller::wake() {
    const std::lock_guard guard(lock_);
    if (thread_ != nullptr) {
        SetEvent(wakeEvent_.get());
        return;
    }
    ResetEvent(stopEvent_.get());
    if (!startThread(body, this, thread_)) {
        log(LogLevel::error,
            "Failed to start the thread that has runs dropped, error-code = %d, %m.\n",
            GetLastError());
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
    const HANDLE either[] = {stopEvent_.get(), wakeEvent_.get()};
    do {
        for (const PendingDrops& drops : PendingDrops::all()) {
            tell(drops);
        }
    } while (WaitForMultipleObjects(2, either, FALSE, againMs_) != WAIT_OBJECT_0);
}

bool DropTeller::stopping() const {
    return WaitForSingleObject(stopEvent_.get(), 0) == WAIT_OBJECT_0;
}

void DropTeller::tell(const PendingDrops& drops) {
    std::unique_ptr<JobDefinition> of;
    if (drops.any() && !(of = definitionOf(drops))) {
        return;
    }
    drops.tell([&](const PendingDrop& run) {
        const std::wstring note = drops.home() + L"\\" + toWide(run.instanceId);
        if (stopping()) {
            SetLastError(ERROR_CANCELLED);
            return false;
        }
        if (damaged_.contains(note)) {
            SetLastError(ERROR_INVALID_DATA);
            return false;
        }
        const bool dropped = drop_(*of, run, stopEvent_.get());
        if (!dropped && GetLastError() == ERROR_INVALID_DATA) {
            damaged_.insert(note);
            SetLastError(ERROR_INVALID_DATA);
        }
        return dropped;
    });
}

// Null when nobody can tell whose runs they are.
std::unique_ptr<JobDefinition> DropTeller::definitionOf(const PendingDrops& drops) {
    if (stopping() || damaged_.contains(drops.home())) {
        return nullptr;
    }
    std::unique_ptr<JobDefinition> of = readDefinition(drops.home());
    if (!of) {
        const DWORD error = GetLastError();
        log(LogLevel::error,
            "Failed to read whose runs are to be dropped {%s}, error-code = %d, %s.\n",
            toUtf8(drops.home()), error, errorText(error));
        if (isNoDefinition(error)) {
            damaged_.insert(drops.home());
        }
        return nullptr;
    }
    // In a copied or renamed directory they are those of another job, which may go on with one.
    return equalsIgnoreCase(of->id(), drops.jobId()) ? std::move(of) : nullptr;
}

}  // namespace dorvo
