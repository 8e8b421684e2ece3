// The bodies of the requests to the web storage service, and what its answers say: JSON, but for a
// block, which travels as a form.
//
// Pure: values in, values out. Paths are UTF-8 with backslashes and without a trailing one, which
// is how the service compares them. An answer is taken only when every member is there, of its type
// and in its range; otherwise reading is false and gives nothing.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "json_spirit/json_spirit.h"
#include "storage/items.h"
#include "storage/storedinstance.h"

namespace dorvo {

// Of an account.

json_spirit::Value loginBody(const std::string& user, const std::string& password,
                             const std::string& machine);
json_spirit::Value listInstancesBody(const std::string& machine, const std::string& definitionId,
                                     const std::string& after, int limit);

// A page of the runs that the service holds, and behind which run the next one begins: empty at the
// end, and from a service that gives all at once.
bool readInstances(const json_spirit::Value& answer, std::vector<StoredInstance>& instances,
                   std::string& next);
// The MD5 of the user's key, empty where the service knows none.
bool readKeyMd5(const json_spirit::Value& answer, std::string& md5);

// Of a backup. An empty time is sent as "unknown".

// The number of blocks that the service is told: one more than the whole blocks of a file's
// package; of a directory only the whole ones.
uint32_t totalBlocks(uint64_t packageSize, bool directory);

// One file that the service is asked about; the time is its last write, in 100-nanosecond units.
struct IncrementItem {
    std::string path;
    uint64_t lastWrite = 0;
};

// `first` begins the list anew: the service forgets what it was asked about in this run before.
json_spirit::Value incrementCheckBody(const std::string& definitionId,
                                      const std::string& instanceId, bool compress, bool first,
                                      std::span<const IncrementItem> items);
json_spirit::Value startJobBody(const std::string& definitionId, const std::string& instanceId,
                                const SourceTotals& totals, const std::string& startTime);
json_spirit::Value uploadFileBody(const std::string& instanceId, const std::string& path,
                                  const ItemAttributes& attributes, uint64_t packageSize);
json_spirit::Value submitErrorsBody(const std::string& instanceId,
                                    std::span<const FailedItem> errors);
json_spirit::Value endJobBody(const std::string& instanceId, const std::string& endTime);
json_spirit::Value stopJobBody(const std::string& instanceId);

// One block of a package as multipart/form-data: prefix, the block's own bytes, suffix. The three
// are sent as one gathered write, so the block is never copied.
struct BlockForm {
    std::string boundary;  // a UUID's text; empty when none could be made
    std::string md5;       // of the block, 32 hexadecimal digits
    std::string instanceId;
    std::string path;
    uint32_t number = 0;  // counted from 1
};
std::string blockFormPrefix(const BlockForm& form);
std::string blockFormSuffix(const BlockForm& form);
std::string blockFormContentType(const BlockForm& form);

// The paths that the service wants.
bool readIncrementAnswer(const json_spirit::Value& answer, std::vector<std::string>& paths);
// How many blocks of an announced file the service holds; none when it does not say.
std::optional<uint64_t> readHeldBlocks(const std::string& body);
// Why the service refuses, in its own words and in one line; empty when it does not say.
std::string readRefusal(const std::string& body);
// The paths that keep the service from ending a run, as far as its refusal names any.
std::vector<std::string> readIncomplete(const std::string& body);

// Of a restore. Its bodies are objects of strings.

// Where an item stands in a backup. Its path is `folder`, a backslash and `name`.
struct StoredPath {
    std::string machine;
    std::string jobInstanceId;  // of the backup
    std::string folder;         // empty for a drive: it lies in nothing
    std::string name;
};

// Splits a path at its last backslash, after a trailing one has been taken off.
StoredPath storedPath(const std::string& machine, const std::string& jobInstanceId,
                      const std::string& path);

json_spirit::Value startRestoreJobBody(const std::string& definitionId,
                                       const std::string& instanceId);
json_spirit::Value listFilesBody(const std::string& machine, const std::string& instanceId,
                                 const std::string& path, const std::string& after, unsigned limit);
json_spirit::Value fileInfoBody(const StoredPath& path);
// `index` counts from 1.
json_spirit::Value downloadBody(const StoredPath& path, uint64_t index);

// What the service says of a restore that it has opened.
struct RestoreTicket {
    std::string jobInstanceId;  // of the restore itself
    uint64_t files = 0;
    uint64_t directories = 0;
    uint64_t size = 0;
};
bool readRestoreTicket(const json_spirit::Value& answer, RestoreTicket& ticket);

// What the service says of one item. The number of blocks is what it holds, not what is needed.
struct StoredItem {
    ItemAttributes attributes;
    uint64_t packageSize = 0;
    uint32_t blocks = 0;
    bool compressed = false;
};
bool readStoredItem(const json_spirit::Value& answer, StoredItem& item);

// One page of the items of a backup.
struct StoredPage {
    struct Item {
        std::string path;
        ItemAttributes attributes;
    };
    std::vector<Item> items;
    std::string next;      // the path after which the next page begins; empty after the last one
    uint64_t missing = 0;  // of a last page: items that the service has lost of the whole list
};
// `after` and `limit` are what was asked for: a page that is longer or leads back is none.
bool readStoredPage(const json_spirit::Value& answer, const std::string& after, unsigned limit,
                    StoredPage& page);

}  // namespace dorvo
