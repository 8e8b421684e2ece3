#include "settings/jsonstorage.h"

#include <windows.h>

#include "base/handle.h"
#include "support/store_test.h"

namespace dorvo {
namespace {

template <class Storage>
class Writable : public Storage {
public:
    auto& values() { return this->values_; }
};

class JsonStorage : public test::StoreTest {};

TEST_F(JsonStorage, KeepsItsValuesWhenAFileIsNoUseAndSharesItWithAWriter) {
    const std::wstring wide = dataPath(L"\\new\\r\u00e9sum\u00e9");
    const std::string path = toUtf8(wide);
    Writable<JSONObjectStorage> object;
    Writable<JSONArrayStorage> array;
    object.values() = {{"kept", true}};
    array.values() = {"kept"};
    for (const char* text : {"", "{", "3", "{} {}", "\xFF"}) {
        write(wide, text);
        EXPECT_FALSE(object.load(path.c_str()) || array.load(path.c_str())) << text;
    }
    write(wide, "[1]");
    EXPECT_FALSE(object.load());
    EXPECT_TRUE(array.load());
    EXPECT_EQ(array.values(), json_spirit::Array{1});
    const FileHandle writer(CreateFileW(wide.c_str(), GENERIC_WRITE,
                                        FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                        FILE_ATTRIBUTE_NORMAL, nullptr));
    EXPECT_TRUE(object.save());
    EXPECT_FALSE(array.load());
    EXPECT_EQ(array.values(), json_spirit::Array{1});
    EXPECT_TRUE(object.load());
    EXPECT_EQ(object.values(), (json_spirit::Object{{"kept", true}}));
}

}  // namespace
}  // namespace dorvo
