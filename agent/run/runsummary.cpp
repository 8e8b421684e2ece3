#include "run/runsummary.h"

#include "base/text.h"
#include "run/runwords.h"
#include "text/failuretext.h"
#include "text/units.h"

namespace dorvo::agent {
namespace {

std::string unfinishedText(const JobDefinition& job, const RunResult& result,
                           const std::string& verb) {
    if (result.outcome == exitFailed) {
        const std::string text = verb + " failed";
        return (result.error == 0 ? text : text + ": " + runFailure(result.error, job.user())) +
               ".";
    }
    return result.state == jobStateToString(JobState::cancelled)
               ? verb + " is cancelled."
               : verb + " is paused at " + std::to_string(result.percent) +
                     "%: go on with 'agent resume \"" + toUtf8(job.name()) + "\"'.";
}

std::string keptText(const RunResult& result) {
    if (result.keptFiles == 0) {
        return {};
    }
    const std::string text = ", " + countText(result.keptFiles, "file") + " (" +
                             bytesText(result.keptBytes) + ") kept as ";
    return text + (result.keptFiles == 1 ? "it was: --conflict overwrite replaces it"
                                         : "they were: --conflict overwrite replaces them");
}

}  // namespace

std::string runSummary(const JobDefinition& job, const RunResult& result) {
    const RunWords words = wordsOf(job);
    if (result.outcome == exitFailed || result.outcome == exitStopped) {
        return unfinishedText(job, result, words.verb);
    }
    std::string text = words.verb + " completed in " + durationText(result.seconds) + " (" +
                       bytesText(result.bytesPerSecond) +
                       "/s): " + countText(result.files, "file") + " " + words.done + " (" +
                       bytesText(result.bytes);
    text += words.viaNetwork ? ", " + bytesText(result.wireBytes) + " over the network)" : ")";
    if (!words.restores) {
        text += ", " + countText(result.unchangedFiles, "file") + " unchanged (" +
                bytesText(result.unchangedBytes) + ")";
    }
    if (const size_t leftOut = result.notes.leftOut.size(); leftOut > 0) {
        text += ", " + std::to_string(leftOut) + " left out";
    }
    if (result.failedItems != 0) {
        text += ", " + std::to_string(result.failedItems) + " failed";
    }
    return text + keptText(result) + ".";
}

}  // namespace dorvo::agent
