#include "job/jobfactory.h"

#include <atomic>

#include "job/backupjob.h"
#include "job/restorejob.h"

namespace dorvo {
namespace {

std::unique_ptr<Job> makeByType(std::unique_ptr<JobDefinition>& definition) {
    switch (definition->type()) {
        case JobDefinition::backupType: return std::make_unique<BackupJob>(std::move(definition));
        case JobDefinition::restoreType: return std::make_unique<RestoreJob>(std::move(definition));
        default: return nullptr;
    }
}

std::atomic<JobMaker> currentMaker{makeByType};

}  // namespace

std::unique_ptr<Job> createJob(std::unique_ptr<JobDefinition>& definition) {
    return currentMaker.load()(definition);
}

JobMaker setJobMaker(JobMaker maker) {
    return currentMaker.exchange(maker == nullptr ? makeByType : maker);
}

}  // namespace dorvo
