#include "job/restorejob.h"

#include "base/log.h"
#include "base/text.h"

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

RestoreJob::RestoreJob(std::unique_ptr<JobDefinition> definition, const TransferServices& services)
    : Job(std::move(definition)), services_(services.whole()), placing_(this->definition().id()) {}

RestoreJob::~RestoreJob() {
    shutdown();
}

bool RestoreJob::init() {
    if (!running()) {
        placing_.removeSibling();
    }
    return Job::init();
}

bool RestoreJob::stop() {
    return Job::stop();
}

std::unique_ptr<RestoreTransfer> RestoreJob::makeTransfer() {
    return std::make_unique<RestoreTransfer>(
        Transfer::Context{.job = *this,
                          .services = services_,
                          .memory = memory_,
                          .cleanup = [this](JobState end) { return cleanup(end); }},
        RestoreTransfer::Parts{
            .definition = restore(),
            .placing = placing_,
            .createStorage = [this](const StorageRun& run) { return createStorage(run); },
            .createCatalog = [this] { return createCatalog(); }});
}

unsigned long RestoreJob::run() {
    FunctionTrace trace("RestoreJob::run", "restorejob.cpp");
    run_ = makeTransfer();
    const unsigned long error = run_->carryOut();
    run_.reset();
    log(LogLevel::information, "Job {%s, %s}: %s.\n", definition().id(),
        toUtf8(definition().name()), endText(lifecycle().state()));
    return error;
}

JobState RestoreJob::cleanup(JobState endCode) {
    return run_->cleanup(endCode);
}

void RestoreJob::endLeft(JobState end) {
    makeTransfer()->endLeft(end);
}

std::unique_ptr<RestoreStorage> RestoreJob::createStorage(const StorageRun& run) {
    return makeRestoreStorage(restore(), run);
}

std::unique_ptr<RestoreCatalog> RestoreJob::createCatalog() {
    return makeRestoreCatalog(restore(), *activity().get(), stopEvent());
}

}  // namespace dorvo
