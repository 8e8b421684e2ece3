// Reads a multipart/form-data body. Values in, views out: nothing is copied.
#pragma once

#include <string_view>
#include <vector>

namespace dorvo {

struct FormPart {
    std::string_view name;
    std::string_view fileName;  // empty when the part has none
    std::string_view content;
};

// The parts in their order, as views into the body. Throws ServiceError 400 when the content type
// names no boundary or the body is not exactly parts between boundaries with an end.
std::vector<FormPart> parseMultipart(std::string_view contentType, std::string_view body);

// The one part of that name; ServiceError 400 when there is none or more than one.
const FormPart& formPart(const std::vector<FormPart>& parts, std::string_view name);

}  // namespace dorvo
