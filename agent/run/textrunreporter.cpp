#include "run/textrunreporter.h"

#include "base/local_time.h"
#include "data/progress.h"
#include "data/runoutcome.h"
#include "data/runwait.h"
#include "run/runsummary.h"
#include "text/units.h"

namespace dorvo::agent {
namespace {

constexpr uint64_t progressPeriodMs = 10'000;
constexpr uint64_t firstDelayMs = 30'000;  // where nothing tells how long a run waits
constexpr uint64_t second = 1000;
constexpr size_t mostNotes = 20;  // of a kind

}  // namespace

TextRunReporter::TextRunReporter(Terminal& terminal, const JobDefinition& job)
    : terminal_(terminal), job_(job), words_(wordsOf(job)) {}

void TextRunReporter::show(const JobActivity& record, uint64_t nowMs) {
    const auto state = static_cast<JobState>(record.state);
    if (state != shown_) {
        shown_ = state;
        showState(record, nowMs);
    } else if (pauseUnsaid_) {
        showPause(record, nowMs);
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
        terminal_.error("failed: " + item.text());
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
            pauseUnsaid_ = waitsForServer(record);
            if (!reason_.empty()) {
                showPause(record, nowMs);
            }
            break;
        default: break;
    }
}

void TextRunReporter::showPause(const JobActivity& record, uint64_t nowMs) {
    if (pauseUnsaid_ && waitsForServer(record)) {
        terminal_.out(waiting(nowMs) + ".");
    }
    pauseUnsaid_ = false;
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
        case JobState::paused: line = waitsForServer(record) ? waiting(nowMs) : ""; break;
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

std::string TextRunReporter::waiting(uint64_t nowMs) const {
    const uint64_t left = leftOfWait(nowMs);
    std::string text = words_.verb + " is paused, waiting for " + words_.place + ", next try in " +
                       std::to_string((left + second - 1) / second) + " s";
    return reason_.empty() ? text : text + " (" + reason_ + ")";
}

}  // namespace dorvo::agent
