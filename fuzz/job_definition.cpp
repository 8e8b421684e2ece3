// A definition's file: one that is read, written and read again says the same.
#include <stdexcept>

#include "input.h"
#include "jobdef/definitiontext.h"

using namespace dorvo;

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto definition = jobdef::definitionFromText(std::string(fuzz::text(data, size)));
    if (definition != nullptr) {
        const std::string text = definition->text();
        const auto again = jobdef::definitionFromText(text);
        fuzz::require(again != nullptr && again->text() == text);
        fuzz::require(definition->clone()->text() == text);
    }
    return 0;
}
