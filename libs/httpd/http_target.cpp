#include "httpd/http_target.h"

#include <charconv>

namespace dorvo {

std::optional<std::string> decodedPath(std::string_view target) {
    target = target.substr(0, target.find('?'));
    std::string path;
    path.reserve(target.size());
    for (size_t i = 0; i < target.size(); ++i) {
        if (target[i] != '%') {
            path += target[i];
            continue;
        }
        const std::string_view digits = target.substr(i + 1, 2);
        unsigned value = 0;
        const auto [end, error] =
            std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
        if (digits.size() != 2 || error != std::errc() || end != digits.data() + 2) {
            return std::nullopt;
        }
        if (value < 0x20 || value == 0x7F || value == '/' || value == '\\') {
            return std::nullopt;
        }
        path += static_cast<char>(value);
        i += 2;
    }
    return path;
}

}  // namespace dorvo
