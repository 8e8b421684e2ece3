// Sends the items of a backup's run, one after the other, to whoever keeps them: claims an item on
// record, encodes its file into a package, announces it, sends the package's blocks of
// 128 KiB. A package that is too large for memory lies in a temporary file meanwhile.
//
// What an earlier run got across of an item is not sent again, as far as the item makes the same
// package: its source has the size and last write of the list, the package has the size on record,
// and the sink finds that it begins with the blocks that are there. Size and time alone tell
// nothing about a content: databases, containers and disk images change and keep both.
//
// One thread, the job's worker; all but the transformation is borrowed. False leaves the reason in
// the last error, 1223 when the run must stop; the sink has logged it.
#pragma once

#include <windows.h>

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "base/interrupter.h"
#include "record/itemprogress.h"
#include "source/itempackage.h"
#include "source/transformation.h"
#include "storage/storagetask.h"

namespace dorvo {

// An item on its way.
struct SentItem {
    // `readFrom` null: where it is listed.
    SentItem(const wchar_t* path, const WIN32_FILE_ATTRIBUTE_DATA& data, uint32_t number,
             const wchar_t* readFrom);

    bool directory() const { return (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0; }

    std::wstring path;  // as it is listed
    std::string name;   // the same, UTF-8 without a trailing backslash
    const WIN32_FILE_ATTRIBUTE_DATA& data;
    uint32_t number;                       // in the source list
    std::wstring source;                   // where it is read from
    const ItemPackage* package = nullptr;  // on its way; the sender's, null for a directory
    uint64_t size = 0;                     // of the package, when it is encoded
};

// What can fail of an item, in the order in which it is done; for a sink's log.
enum class SendStep { encode, measure, compare, announce, goBack, open, seek, read, put, finish };

// Where the blocks of packages go. What fails leaves the last error and is logged by failed().
class BlockSink {
public:
    virtual ~BlockSink() = default;

    // A package is made; nothing of it is there.
    virtual void begin(const SentItem& item) = 0;
    // Of the first blocks of the package so many are on record: becomes the number of those that
    // are there with the same bytes. False when that cannot be found out, or the run must stop.
    virtual bool compare(const SentItem& item, uint32_t& blocks) = 0;
    // Those on record that are not are given up: they never count again, whenever the power fails.
    virtual void giveUp(const SentItem& item) = 0;
    // Says what is coming. `held`: as many blocks of it as are there; may become fewer.
    virtual bool announce(const SentItem& item, uint32_t& held) = 0;
    // The same blocks, but no more than those, count from now on, on record too.
    virtual bool goBack(const SentItem& item, uint32_t held) = 0;
    // One block, numbered from 1; it survives the end of this process. `accepted`: how many the
    // record may say are there.
    virtual bool put(const SentItem& item, uint32_t number, std::span<const std::byte> block,
                     uint32_t& accepted) = 0;
    // All blocks are there.
    virtual bool finish(const SentItem& item) = 0;

    // Logs that a step begins; after the last one, that the item is through.
    virtual void begins(SendStep, const SentItem&) const {}
    virtual void isThrough() const {}
    // Logs that a step has failed with the last error, and makes that what the job has to know.
    virtual void failed(SendStep step, const SentItem& item) const = 0;
};

class ItemSender {
public:
    // The task gives record, key and compression. `folder` is that of temporary packages.
    ItemSender(const BackupTask& task, std::wstring folder, interrupter& stop, BlockSink& sink);

    bool send(SentItem item);

private:
    bool encode(SentItem& item);
    bool claimPackage(const SentItem& item);
    bool announce(const SentItem& item);
    bool sendBlocks(const SentItem& item);
    bool sendBlocks(const SentItem& item, ItemPackage::Reader package);
    bool done(bool success, SendStep step, const SentItem& item) const;

    const JobActivity* record_;  // borrowed
    ItemProgress progress_;      // the way to write there
    interrupter& stop_;          // borrowed
    BlockSink& sink_;            // borrowed
    const std::wstring folder_;
    BackupTransformation transformation_;
    ItemPackage package_;  // of the item on its way
    std::vector<std::byte> block_;
};

}  // namespace dorvo
