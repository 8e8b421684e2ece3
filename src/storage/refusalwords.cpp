#include "storage/refusalwords.h"

#include <array>

namespace dorvo {
namespace {

// Without a destructor, which a library's thread may run after its memory has gone.
struct Refusal {
    uint32_t code;
    std::array<char, 512> words;
};

thread_local Refusal last;

}  // namespace

void keepRefusalWords(uint32_t code, const std::string& words) {
    last.code = code;
    last.words[words.copy(last.words.data(), last.words.size() - 1)] = '\0';
}

std::string refusalWords(uint32_t code) {
    return last.code == code ? last.words.data() : std::string();
}

}  // namespace dorvo
