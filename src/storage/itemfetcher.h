// Brings back the files of a restore's run, one after the other, from whoever keeps them: claims an
// item on record, finds what is kept of it, receives its package in blocks of 128 KiB into the
// job's temporary folder, and decodes it into its place. A package of one block stays in memory:
// most are no larger, and a run that goes on asks for it once more.
//
// The record says at any time how far the package has come, so that the next run goes on there:
// that belongs to the item whose number is on record, and to a package of the size on record. What
// an earlier run has received lay on a disk while nobody looked after it: if the package is
// damaged, all of it is received again, once. A package stays while its item may be tried again:
// the job takes it away when it gives the item up, and empties the folder before a new run.
//
// One thread, the job's worker; all but the transformations is borrowed. False leaves the reason in
// the last error, 1223 when the run must stop; the source has logged it.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "base/error_codes.h"
#include "base/handle.h"
#include "base/interrupter.h"
#include "record/itemprogress.h"
#include "source/transformation.h"
#include "storage/restoretarget.h"
#include "storage/storagetask.h"

namespace dorvo {

// A file on its way.
struct FetchedItem {
    // The task's folder of temporary packages is `folder`.
    FetchedItem(const RestoreTask& task, const std::wstring& original, const std::wstring& target,
                uint32_t number, const std::wstring& folder);

    std::wstring path;  // as it was backed up
    std::string name;   // the same, UTF-8 without a trailing backslash
    std::string place;  // where it goes, for the log
    uint32_t number;    // in the source list
    std::wstring package;
    RestoreTarget target;
    // As it is kept:
    WIN32_FILE_ATTRIBUTE_DATA data{};
    uint64_t size = 0;  // of its package
    bool compressed = false;

    // Its package has no file.
    bool inMemory() const { return fitsInMemory(size); }
};

// What can fail of a file, in the order in which it is done; for a source's log. `next` is what
// lies between two steps, where only a stop is heard. The three that dress the file fail nothing.
enum class FetchStep {
    next,
    parents,
    find,
    room,
    open,
    block,
    toDecode,
    decode,
    attributes,
    openToSetTimes,
    times,
    place,
};

// Where packages come from. What fails leaves the last error and is logged by failed().
class BlockSource {
public:
    virtual ~BlockSource() = default;

    // Tells data, size and compression of the item.
    virtual bool find(FetchedItem& item) = 0;
    // A package is begun, with so many bytes that lie here already: becomes 0 when they are not to
    // be trusted.
    virtual bool begin(const FetchedItem& item, HANDLE package, uint64_t& kept) = 0;
    // The block at the offset, a multiple of its size; borrowed until the next call.
    virtual bool get(const FetchedItem& item, uint64_t offset,
                     std::span<const std::byte>& block) = 0;
    // All blocks are here: 13 when they are not those that were stored, as far as that can be told.
    virtual bool check(const FetchedItem& item) = 0;

    // Logs that a step has failed with the last error, and makes that what the job has to know.
    virtual void failed(FetchStep step, const FetchedItem& item) const = 0;
};

class ItemFetcher {
public:
    // What on record says how far a package has come: the offset; or the number of its blocks,
    // where the offset then counts what is decoded. Either is behind the bytes on the disk.
    enum class ResumeBy { offset, blocks };

    // The task gives record and key.
    ItemFetcher(const RestoreTask& task, std::wstring folder, ResumeBy resume, interrupter& stop,
                BlockSource& source);

    // See RestoreStorage::restoreFile().
    bool fetch(FetchedItem& item, bool replace);

private:
    bool find(FetchedItem& item);
    bool hasRoom(const FetchedItem& item) const;
    bool bring(FetchedItem& item);
    bool receive(const FetchedItem& item, uint64_t& kept);
    bool takeUp(const FetchedItem& item, HANDLE package, uint64_t& kept);
    bool receiveBlocks(const FetchedItem& item, HANDLE package);
    bool receiveInMemory(const FetchedItem& item);
    bool decode(FetchedItem& item);
    void dress(FetchedItem& item) const;
    bool stopped(FetchStep step, const FetchedItem& item) const;
    bool done(bool success, FetchStep step, const FetchedItem& item) const;

    const JobActivity* record_;  // borrowed
    ItemProgress progress_;      // the way to write there
    const std::wstring folder_;  // of the packages
    const ResumeBy resume_;
    interrupter& stop_;    // borrowed
    BlockSource& source_;  // borrowed
    RestoreTransformation plain_;
    RestoreTransformation compressed_;
    std::span<const std::byte> block_;  // all of a package that is in memory; the source's
};

// The error of what came as a block and is none.
constexpr uint32_t malformedBlock = withHttpMark(600);

// Writes a block that came to the package at its current position. Counts as done also when the
// disk did not take all of it: the record's offset and count move on by what it took, and its error
// is left as the thread's last error, 0 when it took everything. `name` and `offset` are for the
// log.
void storeBlock(HANDLE package, std::span<const std::byte> block, const std::string& name,
                uint64_t offset, ItemProgress& progress);

}  // namespace dorvo
