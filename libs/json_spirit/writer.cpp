#include "json_spirit/writer.h"

#include <array>
#include <charconv>
#include <cmath>
#include <ostream>
#include <string_view>

namespace json_spirit {
namespace {

constexpr size_t indentWidth = 4;

// Bytes of the well-formed UTF-8 character that the text starts with, 0 when it starts with none.
size_t characterLength(std::string_view text) {
    const auto byte = [&](size_t i) {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U;
    };
    const auto continues = [&](size_t from, size_t to) {
        for (size_t i = from; i < to; ++i) {
            if ((byte(i) & 0xC0U) != 0x80U) {
                return false;
            }
        }
        return true;
    };
    const unsigned first = byte(0);
    if (first < 0x80) {
        return 1;
    }
    if (first >= 0xC2 && first <= 0xDF) {
        return continues(1, 2) ? 2 : 0;
    }
    // The second byte's range keeps out overlong forms, surrogates and what is above U+10FFFF.
    if (first >= 0xE0 && first <= 0xEF) {
        const bool inRange =
            (first != 0xE0 || byte(1) >= 0xA0) && (first != 0xED || byte(1) < 0xA0);
        return inRange && continues(1, 3) ? 3 : 0;
    }
    if (first >= 0xF0 && first <= 0xF4) {
        const bool inRange =
            (first != 0xF0 || byte(1) >= 0x90) && (first != 0xF4 || byte(1) < 0x90);
        return inRange && continues(1, 4) ? 4 : 0;
    }
    return 0;
}

template <class Config>
class Writer {
public:
    Writer(std::string& out, bool formatted) : out_(out), formatted_(formatted) {}

    void value(const Value_impl<Config>& value) {
        switch (value.type()) {
            case null_type: out_ += "null"; break;
            case bool_type: out_ += value.get_bool() ? "true" : "false"; break;
            case int_type:
                out_ += value.is_uint64() ? std::to_string(value.get_uint64())
                                          : std::to_string(value.get_int64());
                break;
            case real_type: real(value.get_real()); break;
            case str_type: string(value.get_str()); break;
            case array_type:
                list('[', ']', value.get_array(),
                     [&](const auto& element) { this->value(element); });
                break;
            case obj_type:
                list('{', '}', value.get_obj(), [&](const auto& member) {
                    string(Config::name(member));
                    out_ += formatted_ ? " : " : ":";
                    this->value(Config::value(member));
                });
                break;
        }
    }

private:
    template <class Items, class Write>
    void list(char open, char close, const Items& items, Write write) {
        out_ += open;
        ++depth_;
        const char* separator = "";
        for (const auto& item : items) {
            out_ += separator;
            newLine();
            write(item);
            separator = ",";
        }
        --depth_;
        newLine();
        out_ += close;
    }

    void newLine() {
        if (formatted_) {
            out_ += '\n';
            out_.append(depth_ * indentWidth, ' ');
        }
    }

    void real(double number) {
        if (!std::isfinite(number)) {
            out_ += "null";
            return;
        }
        std::array<char, 32> digits{};
        const char* end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
        const std::string_view text(digits.data(), static_cast<size_t>(end - digits.data()));
        out_ += text;
        if (text.find_first_of(".e") == std::string_view::npos) {
            out_ += ".0";  // so that it is read as a real again
        }
    }

    void string(std::string_view text) {
        out_ += '"';
        while (!text.empty()) {
            const size_t length = characterLength(text);
            if (length == 1) {
                ascii(text.front());
            } else if (length == 0) {
                out_ += "\xEF\xBF\xBD";
            } else {
                out_ += text.substr(0, length);
            }
            text.remove_prefix(length == 0 ? 1 : length);
        }
        out_ += '"';
    }

    void ascii(char c) {
        constexpr char hex[] = "0123456789abcdef";
        switch (c) {
            case '"': out_ += "\\\""; break;
            case '\\': out_ += "\\\\"; break;
            case '\b': out_ += "\\b"; break;
            case '\f': out_ += "\\f"; break;
            case '\n': out_ += "\\n"; break;
            case '\r': out_ += "\\r"; break;
            case '\t': out_ += "\\t"; break;
            default:
                if (c >= ' ') {
                    out_ += c;
                } else {
                    out_ += "\\u00";
                    out_ += hex[c >> 4];
                    out_ += hex[c & 15];
                }
        }
    }

    std::string& out_;
    bool formatted_;
    size_t depth_ = 0;
};

template <class Config>
std::string text(const Value_impl<Config>& value, bool formatted) {
    std::string out;
    Writer<Config>(out, formatted).value(value);
    return out;
}

}  // namespace

template <class Config>
std::string write(const Value_impl<Config>& value) {
    return text(value, false);
}

template <class Config>
std::string write_formatted(const Value_impl<Config>& value) {
    return text(value, true);
}

template <class Config>
void write(const Value_impl<Config>& value, std::ostream& stream) {
    stream << text(value, false);
}

template <class Config>
void write_formatted(const Value_impl<Config>& value, std::ostream& stream) {
    stream << text(value, true);
}

template std::string write(const Value&);
template std::string write(const Ordered_value&);
template std::string write_formatted(const Value&);
template std::string write_formatted(const Ordered_value&);
template void write(const Value&, std::ostream&);
template void write(const Ordered_value&, std::ostream&);
template void write_formatted(const Value&, std::ostream&);
template void write_formatted(const Ordered_value&, std::ostream&);

}  // namespace json_spirit
