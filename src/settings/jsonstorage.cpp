#include "settings/jsonstorage.h"

#include "base/text.h"
#include "json_spirit/json_spirit.h"
#include "settings/storefile.h"

namespace dorvo {
namespace {

constexpr DWORD sharedWithAll = FILE_SHARE_READ | FILE_SHARE_WRITE;

// Takes the document's members or elements; false when it is another kind of document.
bool take(const json_spirit::Value& document, json_spirit::Object& values) {
    if (document.type() != json_spirit::obj_type) {
        return false;
    }
    values = document.get_obj();
    return true;
}

bool take(const json_spirit::Value& document, json_spirit::Array& values) {
    if (document.type() != json_spirit::array_type) {
        return false;
    }
    values = document.get_array();
    return true;
}

}  // namespace

template <int Form, class Values>
JSONStorage<Form, Values>::JSONStorage() = default;
template <int Form, class Values>
JSONStorage<Form, Values>::JSONStorage(const JSONStorage&) = default;
template <int Form, class Values>
JSONStorage<Form, Values>& JSONStorage<Form, Values>::operator=(const JSONStorage&) = default;
template <int Form, class Values>
JSONStorage<Form, Values>::~JSONStorage() = default;

template <int Form, class Values>
bool JSONStorage<Form, Values>::load(const char* path) {
    if (path != nullptr) {
        path_ = path;
    }
    if (path_.empty()) {
        SetLastError(ERROR_PATH_NOT_FOUND);
        return false;
    }
    FileHandle file = openStoreForReading(toWide(path_), sharedWithAll);
    std::string text;
    if (!file || !readStore(std::move(file), text)) {
        return false;
    }
    try {
        json_spirit::Value document;
        json_spirit::read_or_throw(text, document);
        if (take(document, values_)) {
            return true;
        }
    } catch (const json_spirit::Error_position&) {
    }
    SetLastError(ERROR_INVALID_DATA);
    return false;
}

template <int Form, class Values>
bool JSONStorage<Form, Values>::save() {
    if (path_.empty()) {
        return false;
    }
    const std::string text = json_spirit::write_formatted(json_spirit::Value(values_));
    FileHandle file = openStoreForWriting(toWide(path_), sharedWithAll);
    return file && writeStore(std::move(file), text);
}

template class JSONStorage<0, std::map<std::string, json_spirit::Value>>;
template class JSONStorage<0, std::vector<json_spirit::Value>>;

}  // namespace dorvo
