// The JSON bodies of a restore's requests to the web storage service, and of its answers.
//
// Pure: values in, values out. Bodies are objects of strings. An answer is taken only when every
// member is there, of its type and in its range; otherwise reading is false and gives nothing.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "json_spirit/json_spirit.h"
#include "storage/request_bodies.h"

namespace dorvo {

// Where an item stands in a backup. Its path is `folder`, a backslash and `name`.
struct StoredPath {
    std::string machine;
    std::string jobInstanceId;  // of the backup
    std::string folder;         // empty for a drive: it lies in nothing
    std::string name;
};

// What the service says of a restore that it has opened.
struct RestoreTicket {
    std::string jobInstanceId;  // of the restore itself
    uint64_t files = 0;
    uint64_t directories = 0;
    uint64_t size = 0;
};

// What the service says of one item. The number of blocks is what it holds, not what is needed.
struct StoredItem {
    ItemAttributes attributes;
    uint64_t packageSize = 0;
    uint32_t blocks = 0;
    bool compressed = false;
};

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

// Splits a path at its last backslash, after a trailing one has been taken off.
StoredPath storedPath(const std::string& machine, const std::string& jobInstanceId,
                      const std::string& path);

json_spirit::Value startRestoreJobBody(const std::string& definitionId,
                                       const std::string& instanceId);
json_spirit::Value fileInfoBody(const StoredPath& path);
// `index` counts from 1.
json_spirit::Value downloadBody(const StoredPath& path, uint64_t index);
json_spirit::Value listFilesBody(const std::string& machine, const std::string& instanceId,
                                 const std::string& path, const std::string& after, unsigned limit);

bool readRestoreTicket(const json_spirit::Value& answer, RestoreTicket& ticket);
bool readStoredItem(const json_spirit::Value& answer, StoredItem& item);
// `after` and `limit` are what was asked for: a page that is longer or leads back is none.
bool readStoredPage(const json_spirit::Value& answer, const std::string& after, unsigned limit,
                    StoredPage& page);

}  // namespace dorvo
