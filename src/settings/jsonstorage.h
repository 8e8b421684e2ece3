// One JSON document that is kept in a file: an object, or an array.
//
// The file is plain formatted JSON in UTF-8 and is rewritten in place as a whole; members stand in
// ascending byte order of their keys. Not locked: an owner that is shared brings its own lock.
// docs/formats/stores.md has the files.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "base/api.h"
#include "json_spirit/value.h"

namespace dorvo {

template <int Form, class Values>
class DORVO_JOB_API JSONStorage {
public:
    JSONStorage();
    JSONStorage(const JSONStorage&);
    JSONStorage& operator=(const JSONStorage&);
    virtual ~JSONStorage();

    // Reads the file; a path (UTF-8) replaces the stored one first, null keeps it. False with the
    // last error when there is no path, or the file cannot be read or holds another kind of
    // document (ERROR_INVALID_DATA); the values then stay as they were.
    bool load(const char* path = nullptr);

    // Writes the values; makes missing folders. False when there is no path or the file cannot be
    // written.
    bool save();

    const std::string& path() const { return path_; }
    const Values& values() const { return values_; }

protected:
    std::string path_;
    Values values_;
};

using JSONObjectStorage = JSONStorage<0, std::map<std::string, json_spirit::Value>>;
using JSONArrayStorage = JSONStorage<0, std::vector<json_spirit::Value>>;

extern template class JSONStorage<0, std::map<std::string, json_spirit::Value>>;
extern template class JSONStorage<0, std::vector<json_spirit::Value>>;

}  // namespace dorvo
