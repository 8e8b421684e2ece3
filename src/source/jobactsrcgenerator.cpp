#include "source/jobactsrcgenerator.h"

#include "base/files.h"
#include "base/local_time.h"
#include "base/text.h"
#include "record/jobactsrcwriter.h"
#include "source/jobvolume.h"

namespace dorvo {
namespace {

constexpr size_t batchFiles = 1000;
constexpr size_t batchEntries = 4 * batchFiles;  // so that folders alone do not pile up either
constexpr uint32_t pollEntries = 1000;  // entries of the walk from one question to the next

bool isDirectory(const WIN32_FILE_ATTRIBUTE_DATA& data) {
    return (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

// Records name a folder without a trailing backslash, however the source was written; only a mount
// point keeps its own.
std::wstring recordedSource(const std::wstring& source, const std::wstring& volumePath) {
    const bool trailing = !source.empty() && source.back() == L'\\';
    return trailing && source.size() > volumePath.size() ? source.substr(0, source.size() - 1)
                                                         : source;
}

}  // namespace

JobActivitySourceGenerator::JobActivitySourceGenerator(Options options)
    : options_(std::move(options)) {}

bool JobActivitySourceGenerator::generate(const std::wstring& path, const VolumeMap& volumes) {
    error_ = ERROR_SUCCESS;
    return writeSourceListFile(path, [&](JobHistorySourceWriter& writer) {
        writer_ = &writer;
        const bool written = write(volumes);
        SetLastError(error_);
        return written;
    });
}

SourceWalk::Rules JobActivitySourceGenerator::walkRules() {
    SourceWalk::Rules rules;
    rules.filter = options_.filter;
    rules.files = options_.files;
    rules.followSources = true;
    rules.excluded = [this](const std::wstring& path) {
        const std::wstring live = toLivePath(path, walked_, source_);
        const ComparablePath compared(live);
        return options_.excluded.contains(compared) || isOtherSource(live, compared) ||
               (options_.leavesOut && options_.leavesOut(compared));
    };
    rules.refused = [this](const std::wstring& path) {
        const std::wstring live = toLivePath(path, walked_, source_);
        if (isWholeText(live)) {
            return false;
        }
        if (options_.failedItem) {
            options_.failedItem(withHalvesSpelled(live), ERROR_NO_UNICODE_TRANSLATION);
        }
        return true;
    };
    rules.notEntered = [this](const std::wstring& path, DWORD tag) {
        if (options_.leftOut) {
            options_.leftOut(toLivePath(path, walked_, source_), tag);
        }
    };
    rules.failed = [this](const std::wstring& path, DWORD error) {
        if (options_.failedItem) {
            options_.failedItem(toLivePath(path, walked_, source_), error);
        }
    };
    rules.stopped = [this] {
        return error_ != ERROR_SUCCESS || (++sincePoll_ >= pollEntries && interrupted());
    };
    return rules;
}

bool JobActivitySourceGenerator::isOtherSource(const std::wstring& live,
                                               const ComparablePath& compared) const {
    return sources_.size() > 1 && live != source_ && sources_.contains(compared.text());
}

bool JobActivitySourceGenerator::write(const VolumeMap& volumes) {
    for (const auto& [path, volume] : volumes) {
        for (const std::wstring& source : volume->sources) {
            sources_.insert(ComparablePath(source).text());
        }
    }
    const SourceWalk::Rules rules = walkRules();
    for (const auto& [path, volume] : volumes) {
        if (!writeVolume(*volume, rules)) {
            return false;
        }
    }
    return true;
}

bool JobActivitySourceGenerator::writeVolume(const JobVolume& volume,
                                             const SourceWalk::Rules& rules) {
    if (!writer_->addVolume(volume.path)) {
        return fail(GetLastError());
    }
    SourceWalk walk(*this, rules);
    for (const std::wstring& source : volume.sources) {
        source_ = recordedSource(source, volume.path);
        walked_ = toShadowPath(source_, volume.path, volume.shadowPath);
        walk.walk({walked_});
        filteredOut_ = filteredOut_ || walk.filteredOut();
        if (error_ != ERROR_SUCCESS) {
            return false;
        }
    }
    return writeBatch();
}

void JobActivitySourceGenerator::processFile(const wchar_t* path,
                                             const WIN32_FILE_ATTRIBUTE_DATA& data) {
    SourceCalculator::processFile(path, data);
    std::wstring live = toLivePath(path, walked_, source_);
    if (!JobHistorySourceWriter::fits(live)) {
        if (options_.failedItem) {
            options_.failedItem(live, ERROR_FILENAME_EXCED_RANGE);
        }
        return;
    }
    if (options_.found) {
        options_.found(live);
    }
    batch_.push_back({std::move(live), data});
    filesInBatch_ += isDirectory(data) ? 0 : 1;
    if (filesInBatch_ == batchFiles || batch_.size() == batchEntries) {
        writeBatch();
    }
}

// Asks about the files of the batch and writes what is to be sent; the batch is empty afterwards.
bool JobActivitySourceGenerator::writeBatch() {
    if (error_ != ERROR_SUCCESS || interrupted()) {
        return false;
    }
    std::vector<bool> send(filesInBatch_, options_.check == nullptr);
    if (options_.check != nullptr && filesInBatch_ > 0 && !askCheck(send)) {
        return false;
    }
    size_t file = 0;
    for (const Entry& entry : batch_) {
        if (!isDirectory(entry.data) && !send[file++]) {
            unchanged_ += sizeOf(entry.data);
            continue;
        }
        if (!writeEntry(entry)) {
            return fail(GetLastError());
        }
    }
    batch_.clear();
    filesInBatch_ = 0;
    return true;
}

bool JobActivitySourceGenerator::askCheck(std::vector<bool>& send) {
    std::vector<IncrementCheck::File> files;
    files.reserve(filesInBatch_);
    for (const Entry& entry : batch_) {
        if (!isDirectory(entry.data)) {
            files.push_back({entry.path, toTicks(entry.data.ftLastWriteTime)});
        }
    }
    SetLastError(ERROR_SUCCESS);
    if (!options_.check->check(files, send)) {
        const DWORD error = GetLastError();
        return fail(error != ERROR_SUCCESS ? error : DWORD{ERROR_GEN_FAILURE});
    }
    return send.size() == files.size() || fail(ERROR_INVALID_DATA);
}

bool JobActivitySourceGenerator::writeEntry(const Entry& entry) {
    if (!writer_->addEntry(entry.path, entry.data, ++itemNumber_)) {
        return false;
    }
    if (isDirectory(entry.data)) {
        ++directories_;
    } else {
        ++files_;
        size_ += sizeOf(entry.data);
    }
    return true;
}

bool JobActivitySourceGenerator::interrupted() {
    sincePoll_ = 0;
    if (options_.stop == nullptr || !options_.stop->interrupted()) {
        return false;
    }
    fail(ERROR_CANCELLED);
    return true;
}

// The first failure counts. Always false.
bool JobActivitySourceGenerator::fail(DWORD error) {
    if (error_ == ERROR_SUCCESS) {
        error_ = error != ERROR_SUCCESS ? error : DWORD{ERROR_GEN_FAILURE};
    }
    return false;
}

}  // namespace dorvo
