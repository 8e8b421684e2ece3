#include "storage/web/block_form.h"

namespace dorvo {
namespace {

constexpr char fieldHead[] = "Content-Disposition: form-data; name=\"";

std::string delimiter(const BlockForm& form) {
    return "--" + form.boundary + "\r\n";
}

std::string field(const BlockForm& form, const char* name, const std::string& value) {
    return delimiter(form) + fieldHead + name + "\"\r\n\r\n" + value + "\r\n";
}

}  // namespace

std::string blockFormPrefix(const BlockForm& form) {
    return field(form, "md5", form.md5) + field(form, "jobinstanceid", form.instanceId) +
           field(form, "sourcename", form.path) + delimiter(form) + fieldHead +
           "file\"; filename=\"" + std::to_string(form.number) +
           ".jpg\"\r\n"
           "Content-Type: image/pjpeg\r\nContent-Transfer-Encoding: binary\r\n\r\n";
}

std::string blockFormSuffix(const BlockForm& form) {
    return "\r\n" + delimiter(form) + fieldHead + "submit\"\r\n\r\nSubmit\r\n--" + form.boundary +
           "--\r\n";
}

std::string blockFormContentType(const BlockForm& form) {
    return "multipart/form-data; boundary=" + form.boundary;
}

}  // namespace dorvo
