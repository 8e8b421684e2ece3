#include "multipart.h"

#include <gtest/gtest.h>

#include <string>

#include "service_error.h"
#include "testing/service_fixture.h"

namespace dorvo {

namespace {

constexpr std::string_view body =
    "--b\r\nContent-Disposition: form-data; name=\"md5\"\r\n\r\nabc\r\n"
    "--b\r\nContent-Disposition: form-data; name=\"file\"; filename=\"1.jpg\"\r\n"
    "Content-Type: image/pjpeg\r\n\r\n\r\n--\r\n-b\r\n--\r\n--b--\r\n";

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
    EXPECT_EQ(read("multipart/form-data; boundary=b", body),
              "md5()=abc;file(1.jpg)=\r\n--\r\n-b\r\n--;");
    EXPECT_EQ(
        read("Multipart/Form-Data;charset=x; BOUNDARY=\"b\"", body.substr(0, body.size() - 2)),
        "md5()=abc;file(1.jpg)=\r\n--\r\n-b\r\n--;");
}

TEST(Multipart, RefusesEveryShorterBody) {
    for (size_t length = 0; length < body.size() - 2; ++length) {
        if (length != body.size() - 2) {
            EXPECT_EQ(read("multipart/form-data; boundary=b", body.substr(0, length)), "400")
                << length;
        }
    }
}

TEST(Multipart, RefusesWhatIsNoForm) {
    struct Row {
        const char* type;
        std::string text;
    };
    const std::string good(body);
    const Row rows[] = {
        {"multipart/form-data", good},
        {"multipart/form-data; boundary=", good},
        {"multipart/form-data; boundary=\"b", good},
        {"multipart/mixed; boundary=b", good},
        {"", good},
        {"multipart/form-data; boundary=b", "x" + good},
        {"multipart/form-data; boundary=b", "\r\n" + good},
        {"multipart/form-data; boundary=b", good + good},
        {"multipart/form-data; boundary=b",
         "--bContent-Disposition: x; name=\"a\"\r\n\r\n\r\n--b--"},
        {"multipart/form-data; boundary=b", "--b\r\nno head\r\n\r\nx\r\n--b--"},
        {"multipart/form-data; boundary=b", "--b\r\nContent-Type: x\r\n\r\nx\r\n--b--"},
        {"multipart/form-data; boundary=b", "--b\r\nContent-Disposition: form-data; name=a"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(read(row.type, row.text), "400") << row.type << " " << row.text;
    }
    std::string many;
    for (int i = 0; i < 1000; ++i) {
        many += "--b\r\nContent-Disposition: form-data; name=\"a\"\r\n\r\nx\r\n";
    }
    EXPECT_EQ(read("multipart/form-data; boundary=b", many + "--b--"), "400");
}

}  // namespace

}  // namespace dorvo
