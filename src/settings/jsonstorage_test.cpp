#include "settings/jsonstorage.h"

#include <windows.h>

#include "support/store_test.h"

namespace dorvo {
namespace {

template <class Storage>
class Writable : public Storage {
public:
    auto& values() { return this->values_; }
};

class JsonStorage : public test::StoreTest {
protected:
    const std::wstring wide_ = dataPath(L"\\new\\r\u00e9sum\u00e9");
    const std::string path_ = toUtf8(wide_);
};

TEST_F(JsonStorage, KeepsItsValuesWhenAFileIsNoUse) {
    Writable<JSONObjectStorage> object;
    Writable<JSONArrayStorage> array;
    object.values() = {{"kept", true}};
    array.values() = {"kept"};
    for (const char* text : {"", "{", "3", "{} {}", "\xFF"}) {
        write(wide_, text);
        EXPECT_FALSE(object.load(path_.c_str())) << text;
        EXPECT_FALSE(array.load(path_.c_str())) << text;
    }
    write(wide_, "[1]");
    EXPECT_FALSE(object.load());
    EXPECT_TRUE(array.load());
    EXPECT_EQ(array.values(), json_spirit::Array{1});
    write(wide_, "{\"a\":1}");
    EXPECT_FALSE(array.load());
    EXPECT_EQ(array.values(), json_spirit::Array{1});
    EXPECT_EQ(object.values(), (json_spirit::Object{{"kept", true}}));
}

TEST_F(JsonStorage, SharesTheFileWithAWriter) {
    write(wide_, "{\"a\":1}");
    HANDLE writer = CreateFileW(wide_.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(writer, INVALID_HANDLE_VALUE);
    Writable<JSONObjectStorage> object;
    EXPECT_TRUE(object.load(path_.c_str()));
    EXPECT_TRUE(object.save());
    CloseHandle(writer);
}

}  // namespace
}  // namespace dorvo
