#include "runsummary.h"

#include <algorithm>

#include "base/local_time.h"
#include "failuretext.h"
#include "units.h"

namespace dorvo::agent {

std::string runSummary(const std::string& verb, const std::string& name, ExitCode outcome,
                       const JobActivity& record) {
    if (outcome == exitFailed) {
        const std::string text = verb + " failed";
        return (record.endError == 0 ? text : text + ": " + failureText(record.endError)) + ".";
    }
    if (outcome == exitStopped) {
        return static_cast<JobState>(record.state) == JobState::cancelled
                   ? verb + " is cancelled."
                   : verb + " is paused at " + std::to_string(record.progress()) +
                         "%: go on with 'agent resume \"" + name + "\"'.";
    }
    const uint32_t failed = record.failedItems;
    std::string text = verb + " completed in " + durationText(record.usedTime / ticksPerSecond) +
                       ": " +
                       countText(record.fileCount - std::min(failed, record.fileCount), "file") +
                       " sent (" + bytesText(record.totalSize) + ", " + bytesText(record.wireSize) +
                       " over the network), " + bytesText(record.unchangedSize) + " unchanged";
    return text + (failed == 0 ? "." : ", " + std::to_string(failed) + " failed.");
}

}  // namespace dorvo::agent
