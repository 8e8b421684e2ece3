#include "storage/web/block_form.h"

#include <gtest/gtest.h>

namespace dorvo {
namespace {

TEST(BlockForm, ByteForByte) {
    const BlockForm form{"11111111-2222-3333-4444-555555555555", "d41d8cd98f00b204e9800998ecf8427e",
                         "inst", "C:\\dir\\file", 3};
    EXPECT_EQ(blockFormPrefix(form),
              "--11111111-2222-3333-4444-555555555555\r\n"
              "Content-Disposition: form-data; name=\"md5\"\r\n"
              "\r\n"
              "d41d8cd98f00b204e9800998ecf8427e\r\n"
              "--11111111-2222-3333-4444-555555555555\r\n"
              "Content-Disposition: form-data; name=\"jobinstanceid\"\r\n"
              "\r\n"
              "inst\r\n"
              "--11111111-2222-3333-4444-555555555555\r\n"
              "Content-Disposition: form-data; name=\"sourcename\"\r\n"
              "\r\n"
              "C:\\dir\\file\r\n"
              "--11111111-2222-3333-4444-555555555555\r\n"
              "Content-Disposition: form-data; name=\"file\"; "
              "filename=\"3.jpg\"\r\n"
              "Content-Type: image/pjpeg\r\n"
              "Content-Transfer-Encoding: binary\r\n"
              "\r\n");
    EXPECT_EQ(blockFormSuffix(form),
              "\r\n"
              "--11111111-2222-3333-4444-555555555555\r\n"
              "Content-Disposition: form-data; name=\"submit\"\r\n"
              "\r\n"
              "Submit\r\n"
              "--11111111-2222-3333-4444-555555555555--\r\n");
    EXPECT_EQ(blockFormContentType(form),
              "multipart/form-data; boundary=11111111-2222-3333-4444-555555555555");
}

}  // namespace
}  // namespace dorvo
