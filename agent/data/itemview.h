// An item of a backup as listings show it.
#pragma once

#include <string>

#include "json_spirit/json_spirit.h"
#include "storage/restorecatalog.h"

namespace dorvo::agent {

// The headings over lines of itemText.
std::string itemHeadings();

// "2026-01-02 03:04:05     1.5 KiB  -a---  C:\data\a.txt": last change (UTC), size, attributes,
// path.
std::string itemText(const RestoreCatalog::Item& item);

// "darhs": directory, archive, read-only, hidden, system; '-' for one that the item lacks.
std::string attributesText(uint32_t attributes);

// {"path", "type", "size", "attributes", "created", "accessed", "modified"}
json_spirit::Ordered_object itemJson(const RestoreCatalog::Item& item);

}  // namespace dorvo::agent
