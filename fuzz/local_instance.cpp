// The document of a backup in a folder: one that is read is the same after it was written.
#include "input.h"
#include "storage/local/localinstancedocument.h"

using namespace dorvo;

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto document = parseLocalInstance(std::string(fuzz::text(data, size)));
    fuzz::require(!document || parseLocalInstance(formatLocalInstance(*document)) == document);
    return 0;
}
