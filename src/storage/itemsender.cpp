#include "storage/itemsender.h"

#include <algorithm>

#include "base/last_error.h"
#include "base/log.h"
#include "base/text.h"
#include "storage/item_attributes.h"
#include "storage/items.h"
#include "storage/itemtemppath.h"

namespace dorvo {

SentItem::SentItem(const wchar_t* listed, const WIN32_FILE_ATTRIBUTE_DATA& listedData,
                   uint32_t listNumber, const wchar_t* readFrom)
    : path(listed),
      name(withoutTrailingBackslash(toUtf8(path))),
      data(listedData),
      number(listNumber),
      source(readFrom == nullptr ? path : readFrom) {}

ItemSender::ItemSender(const BackupTask& task, std::wstring folder, interrupter& stop,
                       BlockSink& sink)
    : record_(task.activity),
      progress_(task.activity),
      stop_(stop),
      sink_(sink),
      folder_(std::move(folder)),
      transformation_(task.compress),
      block_(uploadBlockSize) {
    transformation_.key = task.key.key;
    transformation_.iv = task.key.iv;
}

bool ItemSender::done(bool success, SendStep step, const SentItem& item) const {
    if (!success) {
        sink_.failed(step, item);
    }
    return success;
}

bool ItemSender::send(SentItem item) {
    progress_.claim(item.number);
    sink_.begins(SendStep::encode, item);
    const bool sent = (item.directory() || (encode(item) && claimPackage(item))) &&
                      announce(item) && (item.directory() || sendBlocks(item)) &&
                      done(sink_.finish(item), SendStep::finish, item);
    if (item.directory()) {
        return sent;
    }
    const LastErrorGuard keep;
    if (!package_.remove() && sent) {
        log(LogLevel::warning, "Failed to delete temporary file {%s}, error-code = %d, %m.\n",
            toUtf8(package_.path()), GetLastError());
    }
    if (sent) {
        sink_.isThrough();
    }
    return sent;
}

bool ItemSender::encode(SentItem& item) {
    progress_.encoding(sizeOf(item.data));
    package_.begin(itemTempPath(folder_, item.number));
    item.package = &package_;
    return done(transformation_.transform(item.source.c_str(), package_, &stop_), SendStep::encode,
                item) &&
           done(package_.measure(item.size), SendStep::measure, item);
}

// What is on record of blocks is of the package that an earlier run made.
bool ItemSender::claimPackage(const SentItem& item) {
    sink_.begin(item);
    const uint32_t onRecord = record_->acceptedBlocks;
    uint32_t blocks = onRecord;
    if (onRecord != 0) {
        if (record_->packageSize != item.size || !isAsListed(item.source, item.data)) {
            blocks = 0;
        } else if (!done(sink_.compare(item, blocks), SendStep::compare, item)) {
            return false;  // and what is on record stays
        }
    }
    if (blocks < onRecord) {
        sink_.giveUp(item);
        progress_.backTo(blocks, 0);
    }
    progress_.transferring(item.size, std::min(uint64_t{blocks} * uploadBlockSize, item.size));
    return true;
}

bool ItemSender::announce(const SentItem& item) {
    sink_.begins(SendStep::announce, item);
    const uint32_t blocks = item.directory() ? 0 : record_->acceptedBlocks;
    uint32_t held = blocks;
    if (!done(sink_.announce(item, held), SendStep::announce, item)) {
        return false;
    }
    if (item.directory()) {
        return true;
    }
    sink_.begins(SendStep::goBack, item);
    return held >= blocks || done(sink_.goBack(item, held), SendStep::goBack, item);
}

bool ItemSender::sendBlocks(const SentItem& item) {
    ItemPackage::Reader package = package_.open();
    const uint64_t offset = record_->fileOffset;
    return done(static_cast<bool>(package), SendStep::open, item) &&
           done(offset == 0 || package.seek(offset), SendStep::seek, item) &&
           sendBlocks(item, std::move(package));
}

bool ItemSender::sendBlocks(const SentItem& item, ItemPackage::Reader package) {
    for (;;) {
        DWORD length = 0;
        if (!done(package.read(block_, length), SendStep::read, item)) {
            return false;
        }
        if (length == 0) {
            // A package that was cut or grew since it was measured is not the one announced.
            SetLastError(ERROR_HANDLE_EOF);
            return done(record_->fileOffset == item.size, SendStep::read, item);
        }
        uint32_t accepted = 0;
        if (!done(sink_.put(item, static_cast<uint32_t>(record_->fileOffset / uploadBlockSize) + 1,
                            std::span(block_).first(length), accepted),
                  SendStep::put, item)) {
            return false;
        }
        progress_.accepted(accepted, length);
    }
}

}  // namespace dorvo
