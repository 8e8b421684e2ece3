#include "runsummary.h"

#include <algorithm>

#include "base/local_time.h"
#include "failuretext.h"
#include "units.h"

namespace dorvo::agent {

std::string runSummary(const RunWords& words, const std::string& name, ExitCode outcome,
                       const JobActivity& record, uint32_t walkedFiles) {
    if (outcome == exitFailed) {
        const std::string text = words.verb + " failed";
        return (record.endError == 0 ? text : text + ": " + failureText(record.endError)) + ".";
    }
    if (outcome == exitStopped) {
        return static_cast<JobState>(record.state) == JobState::cancelled
                   ? words.verb + " is cancelled."
                   : words.verb + " is paused at " + std::to_string(record.progress()) +
                         "%: go on with 'agent resume \"" + name + "\"'.";
    }
    const uint32_t failed = record.failedItems;
    const uint32_t listed = record.fileCount;
    std::string text = words.verb + " completed in " +
                       durationText(record.usedTime / ticksPerSecond) + ": " +
                       countText(listed - std::min(failed, listed), "file") + " " + words.done +
                       " (" + bytesText(record.totalSize);
    text += words.viaNetwork ? ", " + bytesText(record.wireSize) + " over the network)" : ")";
    if (!words.restores) {
        const uint32_t unchanged = walkedFiles - std::min(listed, walkedFiles);
        text += ", " + countText(unchanged, "file") + " unchanged (" +
                bytesText(record.unchangedSize) + ")";
    } else if (record.unchangedSize > 0) {
        text += ", " + bytesText(record.unchangedSize) + " of it kept as it was";
    }
    return text + (failed == 0 ? "." : ", " + std::to_string(failed) + " failed.");
}

}  // namespace dorvo::agent
