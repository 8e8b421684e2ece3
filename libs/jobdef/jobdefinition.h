// What a job is to do: the part that backup and restore definitions share.
//
// A definition is a value: nobody but its owner sees it, and it holds no handle. One thread at a
// time. Ids and users are UTF-8, names and paths UTF-16; paths have backslashes here and forward
// slashes in the file. Members of the file that this version does not know are kept and written
// back. docs/formats/job-definition.md has the file.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "jobdef/export.h"
#include "json_spirit/value.h"

namespace dorvo {

enum class StorageKind { web, local };

class DORVO_JOBDEF_API JobDefinition {
public:
    enum Type : int32_t { backupType = 1, restoreType = 2 };

    virtual ~JobDefinition();
    JobDefinition& operator=(const JobDefinition&) = delete;

    // A copy of the same class.
    virtual std::unique_ptr<JobDefinition> clone() const = 0;

    const std::string& id() const { return id_; }
    const std::wstring& name() const { return name_; }
    const std::string& user() const { return user_; }
    // 1 backup, 2 restore; a file of a later version may say another number.
    int32_t type() const { return type_; }
    StorageKind storage() const { return storage_; }
    // The folder of local storage; empty for web storage.
    const std::wstring& location() const { return location_; }

    void setName(std::wstring name) { name_ = std::move(name); }
    void useWebStorage();
    void useLocalStorage(std::wstring location);

    // Writes the definition to a new file beside `path` which then replaces the one there; makes
    // missing folders. False with the last error set when that fails; the old file is then whole.
    bool save(const std::wstring& path) const;

    // The file's text: one formatted JSON object.
    std::string text() const;

protected:
    JobDefinition(int32_t type, std::string id, std::wstring name, std::string user);
    // Throws std::runtime_error for a missing or wrongly typed required member, UnknownKind for a
    // storage that this version does not know.
    explicit JobDefinition(const json_spirit::Object& members);
    JobDefinition(const JobDefinition&);

    // Puts the members of the class into the object; derived classes call the base's first.
    virtual void describe(json_spirit::Object& members) const;

private:
    int32_t type_;
    std::string id_;
    std::wstring name_;
    std::string user_;
    StorageKind storage_ = StorageKind::web;
    std::wstring location_;
    json_spirit::Object read_;  // the file's members as read, unknown ones included
};

}  // namespace dorvo
