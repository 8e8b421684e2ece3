#include "endpoints/multipart.h"

#include <algorithm>
#include <string>

#include "common/service_error.h"
#include "httpd/http_text.h"

namespace dorvo {

namespace {

constexpr std::string_view lineEnd = "\r\n";
constexpr size_t maxBoundary = 70;
constexpr size_t maxParts = 16;

[[noreturn]] void refuse(const std::string& why) {
    throw ServiceError(400, "multipart: " + why);
}

// Takes the prefix off the front of the text if it stands there.
bool take(std::string_view& text, std::string_view prefix) {
    if (!text.starts_with(prefix)) {
        return false;
    }
    text.remove_prefix(prefix.size());
    return true;
}

// The text up to the mark; what remains begins after it.
std::string_view takeUntil(std::string_view& text, std::string_view mark, const char* what) {
    const size_t at = text.find(mark);
    if (at == std::string_view::npos) {
        refuse(std::string(what) + " has no end");
    }
    const std::string_view taken = text.substr(0, at);
    text.remove_prefix(at + mark.size());
    return taken;
}

// The parameter's value in "type; key=value; key=\"value\"", empty when it isn't there.
std::string_view parameter(std::string_view header, std::string_view key) {
    size_t semicolon = header.find(';');
    while (semicolon != std::string_view::npos) {
        header = trimmed(header.substr(semicolon + 1));
        const size_t equals = header.find('=');
        if (equals == std::string_view::npos) {
            return {};
        }
        const std::string_view name = trimmed(header.substr(0, equals));
        std::string_view value = header.substr(equals + 1);
        if (take(value, "\"")) {
            header = value;
            value = takeUntil(header, "\"", "a quoted parameter");
        } else {
            value = trimmed(value.substr(0, value.find(';')));
        }
        if (equalNoCase(name, key)) {
            return value;
        }
        semicolon = header.find(';');
    }
    return {};
}

std::string_view boundaryOf(std::string_view contentType) {
    if (!equalNoCase(trimmed(contentType.substr(0, contentType.find(';'))),
                     "multipart/form-data")) {
        refuse("the content type must be multipart/form-data");
    }
    const std::string_view boundary = parameter(contentType, "boundary");
    if (boundary.empty() || boundary.size() > maxBoundary) {
        refuse("the content type names no boundary");
    }
    return boundary;
}

// Reads the part's head off the front of the text.
FormPart readHead(std::string_view& text) {
    FormPart part;
    bool named = false;
    while (true) {
        const std::string_view line = takeUntil(text, lineEnd, "a part's head");
        if (line.empty()) {
            break;
        }
        const size_t colon = line.find(':');
        if (colon == std::string_view::npos) {
            refuse("a part's head is malformed");
        }
        if (equalNoCase(trimmed(line.substr(0, colon)), "content-disposition")) {
            part.name = parameter(line, "name");
            part.fileName = parameter(line, "filename");
            named = !part.name.empty();
        }
    }
    if (!named) {
        refuse("a part has no name");
    }
    return part;
}

}  // namespace

std::vector<FormPart> parseMultipart(std::string_view contentType, std::string_view body) {
    const std::string delimiter = "--" + std::string(boundaryOf(contentType));
    const std::string partEnd = std::string(lineEnd) + delimiter;
    if (!take(body, delimiter)) {
        refuse("the body does not begin with its boundary");
    }
    std::vector<FormPart> parts;
    while (!take(body, "--")) {
        if (!take(body, lineEnd)) {
            refuse("a boundary's line is malformed");
        }
        if (parts.size() == maxParts) {
            refuse("too many parts");
        }
        FormPart part = readHead(body);
        part.content = takeUntil(body, partEnd, "a part");
        parts.push_back(part);
    }
    if (!body.empty() && body != lineEnd) {
        refuse("bytes after the end");
    }
    return parts;
}

const FormPart& formPart(const std::vector<FormPart>& parts, std::string_view name) {
    const auto named = [name](const FormPart& part) { return part.name == name; };
    const auto found = std::find_if(parts.begin(), parts.end(), named);
    if (found == parts.end()) {
        refuse("no part named \"" + std::string(name) + "\"");
    }
    if (std::any_of(found + 1, parts.end(), named)) {
        refuse("two parts named \"" + std::string(name) + "\"");
    }
    return *found;
}

}  // namespace dorvo
