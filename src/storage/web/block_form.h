// One block of a package as a multipart/form-data body: prefix, the block's own bytes, suffix.
//
// Pure. The three are sent as one gathered write, so the block is never copied.
#pragma once

#include <cstdint>
#include <string>

namespace dorvo {

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

}  // namespace dorvo
