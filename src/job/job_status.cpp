// What a job tells: its status as values, JSON and text, and its notifications.
#include <cstring>
#include <ostream>
#include <sstream>

#include <httpmsg/http_names.h>
#include <jobdef/backupjobdefinition.h>

#include "base/error_codes.h"
#include "base/last_error.h"
#include "base/local_time.h"
#include "base/log.h"
#include "base/text.h"
#include "base/uuid.h"
#include "job/job.h"
#include "job/transferfailure.h"
#include "notify/jobnotifymanager.h"
#include "notify/notify_event.h"

namespace dorvo {
namespace {

const BackupJobDefinition* backupOf(const JobDefinition& definition) {
    return definition.type() == JobDefinition::backupType
               ? dynamic_cast<const BackupJobDefinition*>(&definition)
               : nullptr;
}

const char* fileStateText(uint32_t state) {
    switch (static_cast<CurrentFileState>(state)) {
        case CurrentFileState::encoding: return "encoding";
        case CurrentFileState::transfer: return "transfer";
        case CurrentFileState::awaited:
        case CurrentFileState::none: break;
    }
    return "none";
}

}  // namespace

int32_t Job::state() const {
    return activity_.get() == nullptr ? 0 : activity_->state;
}

int32_t Job::lastRunState() const {
    return activity_.get() == nullptr ? 0 : activity_->lastRunState;
}

void Job::lastRunTime(int& date, int& time) const {
    toDateTime(toFileTime(activity_.get() == nullptr ? 0 : activity_->lastRunTime), date, time);
}

void Job::nextRunTime(int& date, int& time) const {
    toDateTime(toFileTime(activity_.get() == nullptr ? 0 : activity_->nextRunTime), date, time);
}

int Job::progress() const {
    return activity_.get() == nullptr ? 0 : activity_->progress();
}

int Job::fileProgress() const {
    return activity_.get() == nullptr ? 0 : activity_->fileProgress();
}

uint64_t Job::speed() const {
    return activity_.get() == nullptr ? 0 : activity_->speed();
}

uint64_t Job::remainTime() const {
    return activity_.get() == nullptr ? 0 : activity_->remainTime();
}

std::wstring Job::file() const {
    return activity_.get() == nullptr ? std::wstring() : activity_->currentFilePath();
}

bool Job::isManual() const {
    const BackupJobDefinition* backup = backupOf(*definition_);
    return backup == nullptr || backup->schedule().kind == ScheduleKind::manual;
}

bool Job::isRunOnce() const {
    const BackupJobDefinition* backup = backupOf(*definition_);
    return backup == nullptr || backup->schedule().kind == ScheduleKind::once;
}

void Job::toDateTime(const FILETIME& time, int& date, int& timeOfDay) {
    date = 0;
    timeOfDay = 0;
    SYSTEMTIME parts;
    if (toTicks(time) != 0 && FileTimeToSystemTime(&time, &parts) != 0) {
        date = parts.wYear * 10000 + parts.wMonth * 100 + parts.wDay;
        timeOfDay = parts.wHour * 10000 + parts.wMinute * 100 + parts.wSecond;
    }
}

void Job::toJSON(json_spirit::Object& object) const {
    const JobState pending = lifecycle_.pending();
    const bool asked = pending == JobState::pausing || pending == JobState::canceling;
    const JobState shown = asked ? pending : lifecycle_.state();
    object["id"] = definition_->id();
    object["state"] = jobStateToString(shown);
    if (activity_.get() == nullptr || !isUnfinished(shown)) {
        return;
    }
    object["progress"] = progress();
    object["file"] = toUtf8(file());
    object["fileProgress"] = fileProgress();
    object["remainTime"] = remainTime();
    object["speed"] = speed();
    object["currentFileState"] = fileStateText(activity_->currentFileState);
    if (shown == JobState::paused) {
        object["paused-manually"] = activity_->pausedManually != 0;
    }
}

void Job::dumpState(std::ostream& os, JobState state) const {
    const JobActivity* record = activity_.get();
    if (record == nullptr) {
        return;
    }
    const bool resumed = state == JobState::running && record->resuming != 0;
    os << "Job {" << definition_->id() << ", " << toUtf8(definition_->name()) << "} instance {"
       << uuidText(record->instanceId) << "} is "
       << (resumed ? "resuming" : jobStateToString(state));
    if (state == JobState::completing) {
        os << "used time: " << record->usedTime / ticksPerSecond;
    } else if (state != JobState::starting && state != JobState::running &&
               state != JobState::paused) {
        os << ".";
    } else if (record->fileOffset < record->fileSize) {
        os << " at file " << record->fileIndex << " \"" << toUtf8(file()) << "\" size "
           << record->fileSize << " offset " << record->fileOffset;
    } else if (record->fileIndex < record->fileCount) {
        os << " at file " << record->fileIndex + 1;
    }
}

std::string Job::instanceText() const {
    const JobActivity* const record = activity_.get();
    return record == nullptr ? std::string() : dorvo::instanceText(record->instanceId);
}

bool Job::createInstance() {
    const char* id = definition_->id().c_str();
    GUID instance{};
    const long status = createUuid(instance);
    const std::string message = errorText(static_cast<unsigned long>(status));
    if (status != 0) {
        return logFailed("Failed to create uuid for job {%s} instance, error = %d, %s.\n", id,
                         status, message);
    }
    std::memcpy(activity_->instanceId.data(), &instance, sizeof(instance));
    log(LogLevel::information,
        "Create uuid for job {%s} instance, the uuid created is %s, error = %d, %s.\n", id,
        uuidText(instance), status, message);
    return true;
}

bool Job::setStartEvent() {
    if (SetEvent(startEvent_.get()) == 0) {
        return logFailed("Failed to signal backup job {%s} start event, %s.\n", definition_->id(),
                         errorText(GetLastError()));
    }
    std::ostringstream text;
    dumpState(text, JobState::running);
    log(LogLevel::information, "%s.\n", text.str());
    return true;
}

bool Job::notify_state() {
    return notify_state(lifecycle_.state());
}

bool Job::notify_state(JobState state) {
    return postEvent(
        std::make_unique<Event_State>(definition_->user().c_str(), definition_->id().c_str(),
                                      definition_->name().c_str(), static_cast<unsigned>(state)));
}

bool Job::notify_error(unsigned long code) {
    const unsigned long plain = withoutHttpMark(code);
    const std::string reason = reasonText(code);
    return postEvent(std::make_unique<Event_Job_Error>(
        definition_->user().c_str(), definition_->id().c_str(), definition_->name().c_str(),
        static_cast<unsigned>(state()), static_cast<int>(plain), reason.c_str()));
}

std::string Job::reasonText(unsigned long code) const {
    if (isKeyError(code)) {
        return keyErrorText(code, definition_->user());
    }
    return hasHttpMark(code) ? http_status_string(static_cast<int>(withoutHttpMark(code)))
                             : errorText(code);
}

bool Job::is_network_error(unsigned long code) {
    return isNetworkError(code);
}

}  // namespace dorvo
