#include "job/backupjob.h"

#include <cstring>

#include "base/last_error.h"
#include "base/log.h"
#include "base/singleton.h"
#include "settings/options.h"

namespace dorvo {
namespace {

bool optionToSnapshot() {
    return ATL::CComSingleton<OptionsImpl, ATL::CComAutoCriticalSection>::instance()
        ->enableSnapshot();
}

}  // namespace

BackupJob::BackupJob(std::unique_ptr<JobDefinition> definition)
    : BackupJob(std::move(definition), Services{}) {}

BackupJob::BackupJob(std::unique_ptr<JobDefinition> definition, Services services)
    : Job(std::move(definition)),
      services_(wholeOf(std::move(services))),
      planner_(this->definition().id(), services_.schedules, services_.clock),
      drops_(this->definition().id()) {}

BackupJob::Services BackupJob::wholeOf(Services services) {
    static_cast<TransferServices&>(services) = services.whole();
    if (!services.snapshotsEnabled) {
        services.snapshotsEnabled = optionToSnapshot;
    }
    if (!services.snapshots) {
        services.snapshots = [] { return std::make_unique<VSSRequester>(); };
    }
    if (!services.incrementCheck) {
        services.incrementCheck = [this] {
            return makeIncrementCheck(backup(), *activity().get(), stopEvent());
        };
    }
    if (!services.tellDrops) {
        services.tellDrops = [this] {
            if (host() != nullptr) {
                host()->tellDrops();
            }
        };
    }
    return services;
}

BackupJob::~BackupJob() {
    shutdown();
    planner_.stop();
    if (removing()) {
        drops_.handOn(definition());  // on failure they stay where they are
    }
}

bool BackupJob::init() {
    if (!noteLeft() || !Job::init()) {
        return false;
    }
    if (!backup().scheduleIsValid()) {
        log(LogLevel::error,
            "The schedule of job {%s} is not valid: the job starts by hand only.\n",
            definition().id());
    }
    plan(PlanReason::loaded);
    return true;
}

// A run that an older version has begun is noted before it may be recorded as ended: until its note
// is on the disk, its record alone says that there is something to drop.
bool BackupJob::noteLeft() {
    if (running() || activity().get() == nullptr || isRestartable(lifecycle().state()) ||
        instanceText().empty() || drops_.note(placeOfRun(backup(), instanceText()))) {
        return true;
    }
    const LastErrorGuard keep;
    const bool ends = leftAs(lifecycle().state(), lifecycle().pending()) != JobState::paused;
    if (!ends || drops_.holds(instanceText())) {
        return true;
    }
    log(LogLevel::error,
        "Job {%s} is left out until it can be noted where its last run lies: make room on the disk "
        "of the agent's data, and start the agent again.\n",
        definition().id());
    return false;
}

bool BackupJob::stop() {
    return Job::stop();
}

bool BackupJob::pause(bool manual) {
    return Job::pause(manual);
}

std::unique_ptr<BackupTransfer> BackupJob::makeTransfer() {
    return std::make_unique<BackupTransfer>(
        Transfer::Context{.job = *this,
                          .services = services_,
                          .memory = memory_,
                          .cleanup = [this](JobState end) { return cleanup(end); },
                          .runEnds = [this] { runEnds(); }},
        BackupTransfer::Parts{
            .definition = backup(),
            .services = services_,
            .drops = drops_,
            .snapshots = snapshots_,
            .createStorage = [this](const StorageRun& run, const SourceTotals& totals) {
                return createStorage(run, totals);
            }});
}

unsigned long BackupJob::run() {
    FunctionTrace trace("BackupJob::run", "backupjob.cpp");
    run_ = makeTransfer();
    const unsigned long error = run_->carryOut();
    run_.reset();
    return error;
}

JobState BackupJob::cleanup(JobState endCode) {
    FunctionTrace trace("BackupJob::cleanup", "backupjob.cpp");
    return run_->cleanup(endCode);
}

void BackupJob::endLeft(JobState end) {
    makeTransfer()->endLeft(end);
}

bool BackupJob::commandimpl(const char* text) {
    if (text != nullptr && std::strcmp(text, "do_schedule") == 0) {
        return plan(PlanReason::asked);
    }
    return Job::commandimpl(text);
}

void BackupJob::startAsked(bool refused) {
    plan(refused ? PlanReason::refused : PlanReason::started);
}

void BackupJob::runEnds() {
    plan(PlanReason::ended);
}

bool BackupJob::plan(PlanReason reason) {
    return activity().get() != nullptr && planner_.plan(reason, backup(), activity());
}

std::unique_ptr<BackupStorage> BackupJob::createStorage(const StorageRun& run,
                                                        const SourceTotals& totals) {
    return makeBackupStorage(backup(), run, totals);
}

}  // namespace dorvo
