#include "run/runreporter.h"

#include <algorithm>
#include <string_view>

#include "base/local_time.h"
#include "base/text.h"
#include "data/runrecord.h"
#include "run/runresult.h"
#include "text/format.h"

namespace dorvo::agent {
namespace {

constexpr uint64_t progressPeriodMs = 10'000;
constexpr uint64_t firstDelayMs = 30'000;  // where nothing tells how long a run waits
constexpr uint64_t second = 1000;
constexpr size_t mostNotes = 20;  // of a kind

// For people.
class TextRunReporter : public RunReporter {
public:
    // Both are borrowed.
    TextRunReporter(Terminal& terminal, const JobDefinition& job);

    void show(const JobActivity& record, uint64_t nowMs) override;
    void finish(const RunResult& result) override;

private:
    void showState(const JobActivity& record, uint64_t nowMs);
    void showLive(const JobActivity& record, uint64_t nowMs);
    std::string beginning(const JobActivity& record) const;
    std::string waiting(const JobActivity& record, uint64_t nowMs, size_t width) const;
    uint64_t leftOfWait(uint64_t nowMs) const;  // milliseconds

    Terminal& terminal_;
    const JobDefinition& job_;
    const RunWords words_;
    JobState shown_ = JobState::none;  // the state of the last show()
    uint64_t pausedAt_ = 0;
    uint64_t nextProgress_ = 0;
};

TextRunReporter::TextRunReporter(Terminal& terminal, const JobDefinition& job)
    : terminal_(terminal), job_(job), words_(wordsOf(job)) {}

void TextRunReporter::show(const JobActivity& record, uint64_t nowMs) {
    const auto state = static_cast<JobState>(record.state);
    if (state != shown_) {
        shown_ = state;
        showState(record, nowMs);
    }
    if (terminal_.live()) {
        showLive(record, nowMs);
    } else if (state == JobState::running && nowMs >= nextProgress_) {
        nextProgress_ = nowMs + progressPeriodMs;
        constexpr size_t lineWidth = 160;
        terminal_.out(progressLine(progressOf(record), lineWidth));
    }
}

void TextRunReporter::finish(const RunResult& result) {
    terminal_.status({});
    for (const std::string& line : noteLines(result.notes.leftOut, "left out", mostNotes)) {
        terminal_.out(line);
    }
    for (const std::string& line : noteLines(result.notes.warnings, "warning", mostNotes)) {
        terminal_.warn(line);
    }
    for (const FailedItem& item : result.failed) {
        terminal_.error("failed: " + failedText(item));
    }
    const std::string summary = runSummary(job_, result);
    result.outcome == exitFailed ? terminal_.error("agent: " + summary) : terminal_.out(summary);
}

void TextRunReporter::showState(const JobActivity& record, uint64_t nowMs) {
    if (waitsForServer(record)) {
        pausedAt_ = nowMs;
    }
    if (terminal_.live()) {
        return;
    }
    switch (shown_) {
        case JobState::starting: terminal_.out(beginning(record) + "."); break;
        case JobState::running:
            nextProgress_ = nowMs + progressPeriodMs;
            terminal_.out(words_.verb + " is running: " + countText(record.fileCount, "file") +
                          ", " + bytesText(record.totalSize) + " " + words_.ahead + ".");
            break;
        case JobState::completing: terminal_.out(words_.verb + " is completing."); break;
        case JobState::pausing: terminal_.out(words_.verb + " is pausing."); break;
        case JobState::canceling: terminal_.out(words_.verb + " is being cancelled."); break;
        case JobState::paused:
            if (waitsForServer(record)) {
                terminal_.out(waiting(record, nowMs, std::string::npos) + ".");
            }
            break;
        default: break;
    }
}

void TextRunReporter::showLive(const JobActivity& record, uint64_t nowMs) {
    std::string line;
    switch (shown_) {
        case JobState::starting: line = beginning(record); break;
        case JobState::running:
        case JobState::completing:
            line = progressLine(progressOf(record), terminal_.width() - 1);
            break;
        case JobState::pausing: line = words_.verb + " is pausing"; break;
        case JobState::canceling: line = words_.verb + " is being cancelled"; break;
        case JobState::paused:
            line = waitsForServer(record) ? waiting(record, nowMs, terminal_.width() - 1) : "";
            break;
        default: break;
    }
    terminal_.status(shortened(line, terminal_.width() - 1));
}

std::string TextRunReporter::beginning(const JobActivity& record) const {
    return words_.verb + " " + (record.resuming != 0 ? "goes on where it stopped" : words_.looking);
}

uint64_t TextRunReporter::leftOfWait(uint64_t nowMs) const {
    if (const uint64_t until = waitsUntil(job_.id()); until != 0) {
        const uint64_t now = utcTimeNow();
        return until > now ? (until - now) / ticksPerMillisecond : 0;
    }
    const uint64_t passed = nowMs - pausedAt_;
    return passed < firstDelayMs ? firstDelayMs - passed : 0;
}

// The reason has what room the rest leaves, which counts down.
std::string TextRunReporter::waiting(const JobActivity& record, uint64_t nowMs,
                                     size_t width) const {
    const uint64_t left = leftOfWait(nowMs);
    std::string text = words_.verb + " is paused, waiting for " + words_.place + ", next try in " +
                       std::to_string((left + second - 1) / second) + " s";
    const std::string reason = whyOf(job_, record.endError);
    const size_t room = width - std::min(width, text.size() + std::string_view(" ()").size());
    return reason.empty() || room == 0 ? text : text + " (" + shortened(reason, room) + ")";
}

constexpr uint64_t periodMs = 500;

json_spirit::Ordered_object beginning(const JobDefinition& job) {
    return {{"id", job.id()}, {"name", toUtf8(job.name())}};
}

std::string line(const json_spirit::Ordered_object& object) {
    return json_spirit::write(json_spirit::Ordered_value(object));
}

// For scripts.
class JsonRunReporter : public RunReporter {
public:
    // Both are borrowed.
    JsonRunReporter(Terminal& terminal, const JobDefinition& job)
        : terminal_(terminal), job_(job) {}

    void show(const JobActivity& record, uint64_t nowMs) override;
    void finish(const RunResult& result) override;

private:
    Terminal& terminal_;
    const JobDefinition& job_;
    JobState shown_ = JobState::none;  // the state of the last show()
    uint64_t nextProgress_ = 0;
    uint64_t until_ = 0;  // as it was said last
};

void JsonRunReporter::show(const JobActivity& record, uint64_t nowMs) {
    const auto state = static_cast<JobState>(record.state);
    const bool waits = waitsForServer(record);
    const bool due = state != JobState::paused && nowMs >= nextProgress_;
    const uint64_t until = waits ? waitsUntil(job_.id()) : 0;
    if (state == shown_ && !due && !(waits && until > until_)) {
        return;
    }
    shown_ = state;
    until_ = until;
    nextProgress_ = nowMs + periodMs;
    json_spirit::Ordered_object json = beginning(job_);
    json.push_back({"state", jobStateToString(state)});
    const Progress progress = progressOf(record);
    json.push_back({"percent", progress.percent});
    json.push_back({"bytes", progress.bytes});
    json.push_back({"totalBytes", progress.totalBytes});
    json.push_back({"files", progress.files});
    json.push_back({"fileCount", progress.fileCount});
    json.push_back({"speed", progress.bytesPerSecond});
    json.push_back({"remainTime", secondsLeftJson(progress)});
    json.push_back({"file", progress.file});
    if (waits) {
        appendWait(json, waitOf(job_, record, true));
    }
    terminal_.out(line(json));
}

void JsonRunReporter::finish(const RunResult& result) {
    json_spirit::Ordered_object json = beginning(job_);
    json.push_back({"summary", resultJson(result, job_)});
    terminal_.out(line(json));
    if (result.outcome == exitFailed) {
        const std::string why = whyFailed(result, job_);
        terminal_.error("agent: The run of job '" + toUtf8(job_.name()) + "' failed" +
                        (why.empty() ? why : ": " + why) + ".");
    }
}

}  // namespace

std::unique_ptr<RunReporter> makeRunReporter(Terminal& terminal, const JobDefinition& job,
                                             bool json) {
    if (json) {
        return std::make_unique<JsonRunReporter>(terminal, job);
    }
    return std::make_unique<TextRunReporter>(terminal, job);
}

}  // namespace dorvo::agent
