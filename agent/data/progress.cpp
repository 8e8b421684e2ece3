#include "data/progress.h"

#include <algorithm>

#include "base/text.h"
#include "text/printable.h"
#include "text/units.h"

namespace dorvo::agent {

Progress progressOf(const JobActivity& record) {
    const bool measured = record.usedTime != 0 && record.AverageSpeed() != 0;
    const bool known = measured || record.progress() == 100;
    return {.percent = record.progress(),
            .files = std::min(record.fileIndex, record.fileCount),
            .fileCount = record.fileCount,
            .bytes = std::min(record.doneSize + record.fileOffset, record.totalSize),
            .totalBytes = record.totalSize,
            .bytesPerSecond = record.speed(),
            .secondsLeft = known ? std::optional(record.remainTime()) : std::nullopt,
            .file = toUtf8(record.currentFilePath())};
}

json_spirit::Ordered_value secondsLeftJson(const Progress& progress) {
    return progress.secondsLeft ? json_spirit::Ordered_value(*progress.secondsLeft)
                                : json_spirit::Ordered_value();
}

std::string progressLine(const Progress& progress, size_t width) {
    std::string percent = std::to_string(progress.percent) + "%";
    percent.insert(0, percent.size() < 4 ? 4 - percent.size() : 0, ' ');
    std::string line = percent + "  " + std::to_string(progress.files) + "/" +
                       countText(progress.fileCount, "file") + "  " + bytesText(progress.bytes) +
                       " of " + bytesText(progress.totalBytes) + "  " +
                       bytesText(progress.bytesPerSecond) + "/s";
    if (progress.secondsLeft.value_or(0) > 0) {
        line += "  " + durationText(*progress.secondsLeft) + " left";
    }
    constexpr size_t gap = 2;
    constexpr size_t leastOfFile = 12;
    const size_t used = columnsOf(line);
    if (!progress.file.empty() && used + gap + leastOfFile <= width) {
        line += "  " + shortened(printable(progress.file), width - used - gap);
    }
    return columnsOf(line) <= width ? line : shortened(line, width);
}

}  // namespace dorvo::agent
