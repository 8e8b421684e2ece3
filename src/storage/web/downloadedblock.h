// What a block download has brought: the text of the block's MD5, then its bytes.
#pragma once

#include <windows.h>

#include <cstdint>
#include <span>
#include <string>

#include "base/http_error.h"
#include "record/itemprogress.h"

namespace dorvo {

constexpr uint32_t md5TextSize = 32;

// The error of an answer that is no block.
constexpr uint32_t malformedBlock = withHttpMark(600);

// Writes the bytes behind the MD5 to the package at its current position; the MD5 is not compared.
// `announced` is the length that the answer promised; `name` and `offset` are for the log. False
// with `malformedBlock` when the body is not as long as promised or holds no MD5.
//
// True also when the disk did not take all of the bytes: the record's offset and count move on by
// what it took, and its error is left as the thread's last error, 0 when it took everything.
bool storeDownloadedBlock(HANDLE package, std::span<const char> body, uint64_t announced,
                          const std::string& name, uint64_t offset, ItemProgress& progress);

}  // namespace dorvo
