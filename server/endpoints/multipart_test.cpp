#include "endpoints/multipart.h"

#include <gtest/gtest.h>

#include <string>

#include "common/service_error.h"

namespace dorvo {

namespace {

const std::string formType = "multipart/form-data; boundary=b";
const std::string form =
    "--b\r\nContent-Disposition: form-data; name=\"md5\"\r\n\r\nabc\r\n"
    "--b\r\nContent-Disposition: form-data; name=\"file\"; filename=\"1.jpg\"\r\n"
    "Content-Type: image/pjpeg\r\n\r\n\r\n--\r\n-b\r\n--\r\n--b--";

std::string read(std::string_view contentType, std::string_view text) {
    std::string result;
    try {
        for (const FormPart& part : parseMultipart(contentType, text)) {
            result += std::string(part.name) + "(" + std::string(part.fileName) +
                      ")=" + std::string(part.content) + ";";
        }
    } catch (const ServiceError& error) {
        return std::to_string(error.status());
    }
    return result;
}

TEST(Multipart, ReadsPartsWhoseContentLooksLikeBoundaries) {
    const std::string parts = "md5()=abc;file(1.jpg)=\r\n--\r\n-b\r\n--;";
    EXPECT_EQ(read(formType, form), parts);
    EXPECT_EQ(read("Multipart/Form-Data;charset=x; BOUNDARY=\"b\"", form + "\r\n"), parts);
}

TEST(Multipart, RefusesWhatIsNoForm) {
    for (size_t length = 0; length < form.size(); ++length) {
        EXPECT_EQ(read(formType, form.substr(0, length)), "400") << length;
    }
    for (const char* type : {"multipart/form-data", "multipart/form-data; boundary=",
                             "multipart/form-data; boundary=\"b", "multipart/mixed; boundary=b"}) {
        EXPECT_EQ(read(type, form), "400") << type;
    }
    const std::string part = "--b\r\nContent-Disposition: form-data; name=\"a\"\r\n\r\nx\r\n";
    std::string many;
    for (int i = 0; i < 17; ++i) {
        many += part;
    }
    for (const std::string& text :
         {"x" + form, "\r\n" + form, form + form, many + "--b--",
          std::string("--bContent-Disposition: x; name=\"a\"\r\n\r\n\r\n--b--"),
          std::string("--b\r\nno head\r\n\r\nx\r\n--b--"),
          std::string("--b\r\nContent-Type: x\r\n\r\nx\r\n--b--")}) {
        EXPECT_EQ(read(formType, text), "400") << text;
    }
}

}  // namespace

}  // namespace dorvo
