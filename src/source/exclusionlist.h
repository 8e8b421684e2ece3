// What users have excluded from backups: the lists that they keep, and the question whether a path
// is on or below one of them.
#pragma once

#include <set>
#include <string>

#include "base/critical_section.h"
#include "settings/jsonstorage.h"
#include "source/comparablepath.h"

namespace dorvo {

constexpr const char* everyJobList = "all";

// The paths that users have excluded from backups: lists by name, kept in "\exclusions".
//
// The file is read by the constructor and written by save(), and by the destructor when there are
// changes that were not saved. The generator of a job's source list honours the list "all" and the
// list named as the job's id. All objects of the process share one lock; any thread.
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

// Answers whether a path is on or below one of a set of excluded paths.
//
// Compared without regard to case and by whole components: "C:\data" covers "c:\Data\a.txt", not
// "C:\database". Slashes of both kinds and \\?\ forms are the same. Immutable once filled; asking
// costs one look-up a component.
class ExcludedPaths {
public:
    ExcludedPaths() = default;
    // The paths that count for a job.
    ExcludedPaths(const ExclusionList& exclusions, const std::string& jobId);

    void add(const ComparablePath& path);
    bool contains(const ComparablePath& path) const;

private:
    std::set<std::wstring, std::less<>> paths_;  // in comparable form
};

}  // namespace dorvo
