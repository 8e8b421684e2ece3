#include "job/restorejob.h"

#include "base/log.h"
#include "base/rm_rf.h"
#include "base/text.h"
#include "job/restorerun.h"
#include "storage/itemtemppath.h"

namespace dorvo {
namespace {

const char* endText(JobState state) {
    switch (state) {
        case JobState::completed: return "Completed";
        case JobState::cancelled: return "Cancelled";
        case JobState::paused: return "Paused";
        default: return "Error";
    }
}

}  // namespace

RestoreJob::RestoreJob(std::unique_ptr<JobDefinition> definition, WaitForServer waitForServer)
    : TransferJob(std::move(definition), std::move(waitForServer)),
      placing_(this->definition().id()) {}

RestoreJob::~RestoreJob() {
    shutdown();
}

bool RestoreJob::init() {
    if (!running()) {
        placing_.removeSibling();
    }
    return TransferJob::init();
}

unsigned long RestoreJob::run() {
    FunctionTrace trace("RestoreJob::run", "restorejob.cpp");
    const unsigned long error = carryOut();
    log(LogLevel::information, "Job {%s, %s}: %s.\n", definition().id().c_str(),
        toUtf8(definition().name()).c_str(), endText(lifecycle().state()));
    return error;
}

JobState RestoreJob::transfer() {
    atStorage_ = true;  // which hears of every run that ends
    return RestoreRun(*this).carryOut();
}

void RestoreJob::tidyUp(JobState endCode) {
    // A paused run goes on with what it has received.
    if (endCode != JobState::paused) {
        rm_rf(itemTempFolder(definition().id()), true);
        placing_.finish();
    }
}

bool RestoreJob::openStorage() {
    storage_ = createStorage(StorageUse::items);
    return storage_ && storage_->start();
}

bool RestoreJob::recordError(const wchar_t* path, DWORD code, const std::string& reason) {
    return storage_->recordError(path, code, reason);
}

bool RestoreJob::completeAtStorage() {
    return endAtStorage(JobState::completed);
}

bool RestoreJob::dropAtStorage(JobState& endCode) {
    return endAtStorage(endCode);
}

bool RestoreJob::endAtStorage(JobState endCode) {
    if (!storage_) {
        storage_ = createStorage(StorageUse::end);
    }
    return storage_ && storage_->end(historyAt(endCode));
}

std::unique_ptr<RestoreStorage> RestoreJob::createStorage(StorageUse use) {
    StorageRun run = storageRun(use);
    run.placing = &placing_;
    return makeRestoreStorage(restore(), run);
}

std::unique_ptr<RestoreCatalog> RestoreJob::createCatalog() {
    return makeRestoreCatalog(restore(), *activity().get(), stopEvent());
}

}  // namespace dorvo
