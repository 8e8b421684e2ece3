// The text of an encoded store: garbage throws, and what was encoded decodes to itself.
#include <array>
#include <stdexcept>

#include "input.h"
#include "settings/encodedtext.h"

using namespace dorvo;

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static constexpr std::array<unsigned char, 16> key{1, 2, 3};
    static constexpr std::array<unsigned char, 16> iv{4, 5, 6};
    const std::string text(fuzz::text(data, size));
    try {
        const std::string bytes = decodeBase64(text);
        fuzz::require(decodeBase64(encodeBase64(bytes)) == bytes);
    } catch (const std::runtime_error&) {
    }
    // As it is, and as what stands behind the Base64.
    for (const std::string& encoded : {text, encodeBase64(text)}) {
        try {
            fuzz::require(decodeText(encoded, key, iv).size() < encoded.size());
        } catch (const std::runtime_error&) {
        }
    }
    fuzz::require(decodeText(encodeText(text, key, iv), key, iv) == text);
    return 0;
}
