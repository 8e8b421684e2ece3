// Which item the activity record speaks of.
#pragma once

#include <cstdint>

#include "record/jobactivity.h"
#include "storage/record_order.h"

namespace dorvo {

// What is on record of blocks, offset and package belongs to the item whose number is on record:
// that of another one is forgotten first.
inline void claimItem(JobActivity& record, uint32_t number) {
    if (record.itemNumber == number) {
        return;
    }
    record.acceptedBlocks = 0;
    record.fileOffset = 0;
    record.packageSize = 0;
    storeOrder();
    record.itemNumber = number;
}

}  // namespace dorvo
