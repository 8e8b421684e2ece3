// The paths that users have excluded from backups: lists by name, kept in "\exclusions".
//
// The file is read by the constructor and written by save(), and by the destructor when there are
// changes that were not saved. The generator of a job's source list honours the list "all" and the
// list named as the job's id. All objects of the process share one lock; any thread.
#pragma once

#include <string>

#include "base/critical_section.h"
#include "settings/jsonstorage.h"

namespace dorvo {

constexpr const char* everyJobList = "all";

class DORVO_JOB_API ExclusionList : public JSONObjectStorage {
public:
    ExclusionList();
    ExclusionList(const ExclusionList& other);
    ExclusionList& operator=(const ExclusionList& other);
    ~ExclusionList() override;

    // The file is there and could not be read: the object is empty, and takes and saves nothing, so
    // that what a user can still mend is not written over.
    bool damaged() const { return damaged_; }

    // False for a null or empty argument, for a damaged file, or when what the file holds under
    // that name is no list. A path that is on the list already, in whatever case, stays as it is.
    bool addPath(const char* list, const char* path);
    // False when the path is not on the list, or the file is damaged. A list that becomes empty
    // goes.
    bool removePath(const char* list, const char* path);
    // Fills `paths` with the JSON array of that name: paths with forward slashes.
    bool getList(const char* list, json_spirit::Value& paths) const;

    bool save();

private:
    JSONObjectStorage content() const;
    bool saveLocked();

    static CriticalSection s_locker;  // guards all objects and the file
    bool changed_ = false;
    bool damaged_ = false;
};

}  // namespace dorvo
