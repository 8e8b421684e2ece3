// An instance under way: its index and its packages, open for writing.
//
// While the object lives nobody else can open the instance so. Records stand in the index only when
// what they speak of is written; it survives the end of the process. What must survive a power cut
// is flushed: flush() at the end, check points in between, so that a run that goes on has to check
// only what came after the last one.
//
// False leaves the last error of the file; nothing is logged. One thread.
#pragma once

#include <windows.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <unordered_set>
#include <vector>

#include "base/handle.h"
#include "base/interrupter.h"
#include "storage/local/localplace.h"

namespace dorvo {

class LocalInstanceWriter {
public:
    // Bytes of packages after which a check point is due.
    static constexpr uint64_t checkpointInterval = uint64_t{256} << 20;

    // Makes what is not there, and reads the instance's document; without one it has no id. Null:
    // 32 when another one has it open, 5023 when it is completed: then nothing is touched. load()
    // or reset() comes next.
    static std::unique_ptr<LocalInstanceWriter> open(const LocalPlace& place, const std::string& id,
                                                     LocalInstanceDocument& document);

    // Forgets everything.
    bool reset();

    // Reads what an earlier run has left. A torn record at the end is cut off, and so are the
    // failed items of an end that was broken off.
    bool load();
    uint64_t carried() const { return carried_; }  // files in others' packages
    uint64_t items() const { return items_; }      // that the run itself has brought
    uint64_t records() const { return records_; }
    bool countAwaited(uint64_t& count) const;

    // Checks the packages that came after the last check point: 13 when bytes were lost.
    bool verify(const interrupter& stop);

    // Files of other instances, and files that are to come. On the disk when true comes back.
    bool plan(std::span<const LocalRecord> carried, std::span<const LocalRecord> awaited);

    // What a run that goes on has to have stored.
    struct Expected {
        std::wstring list;      // the path of the run's source list
        uint64_t position = 0;  // where in it the run stands
        // UTF-8 paths without a trailing backslash; borrowed.
        const std::unordered_set<std::string>* failed = nullptr;
    };
    // Each item of the list in front of the run's place stands in the index, in the list's order,
    // or has failed; else 13: a power cut may take records that the run has moved past. What stands
    // behind them is taken back: the run has no record of it, and repeats it.
    bool keepItems(const Expected& expected, const interrupter& stop);
    bool append(LocalRecord record);

    // Where the next package lies, and its bytes from there on.
    uint64_t packageOffset() const { return packagesEnd_; }
    bool readPackage(uint64_t offset, std::span<std::byte> bytes) const;
    bool writePackage(uint64_t offset, std::span<const std::byte> bytes);

    // Adds the failed items, and brings everything to the disk: packages, then index.
    bool finish(std::span<const LocalRecord> failed);
    uint64_t indexSize() const { return indexEnd_; }

    // Made when one is due.
    bool checkpoint();

private:
    LocalInstanceWriter(LocalPlace place, std::string id);

    bool write(std::span<const std::byte> records);
    bool isOwnItem(const LocalRecord& record) const;
    void take(const LocalRecord& record);

    LocalPlace place_;
    std::string id_;
    LocalInstanceId own_;
    FileHandle packages_;
    FileHandle index_;
    FileHandle awaited_;        // from the first plan() on
    uint64_t awaitedEnd_ = 0;   // of its whole records
    uint64_t indexEnd_ = 0;     // of the whole records
    uint64_t packagesEnd_ = 0;  // of the packages that have a record
    uint64_t checkedTo_ = 0;    // of the index: behind the last check point
    uint64_t sinceCheckpoint_ = 0;
    uint64_t carried_ = 0;
    uint64_t items_ = 0;
    uint64_t records_ = 0;
    bool torn_ = false;           // the index may have bytes behind its end
    uint64_t itemsEnd_ = 0;       // of the index, before the failed items
    uint64_t failedRecords_ = 0;  // behind itemsEnd_
    std::vector<std::byte> bytes_;
};

}  // namespace dorvo
