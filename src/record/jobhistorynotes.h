// What a run has to say that is no failure: a JSON array in the job's history.
//
// What the run left out by its own rules, with the reason, and what the user should know of what it
// did store. Gathered in memory and saved as a whole; a run without notes leaves no document. One
// thread. docs/formats/history.md has the file.
#pragma once

#include <cstddef>
#include <string>

#include "base/api.h"
#include "settings/jsonstorage.h"

namespace dorvo {

class DORVO_JOB_API JobHistoryNotes : public JSONArrayStorage {
public:
    enum class Kind { leftOut, warning };
    // So many of a kind are kept; one more says that there were others.
    static constexpr size_t mostOfKind = 1000;

    // Reads the document when the file (UTF-8 path) is there: a resumed run goes on with it.
    explicit JobHistoryNotes(const std::string& path);
    ~JobHistoryNotes() override;
    JobHistoryNotes(const JobHistoryNotes&) = delete;
    JobHistoryNotes& operator=(const JobHistoryNotes&) = delete;

    void add(Kind kind, const std::wstring& path, const std::string& reason);
    // The same, unless it stands there already: false then.
    bool addOnce(Kind kind, const std::wstring& path, const std::string& reason);
    // Forgets all notes, for save() to write.
    void clear();
    // Writes what has changed. False, with the last error, when the file cannot be written, which
    // is logged.
    bool save();

    // How the document names a kind: "leftOut", "warning".
    static const char* textOf(Kind kind);

private:
    size_t& countOf(Kind kind) { return kind == Kind::leftOut ? leftOut_ : warnings_; }
    void append(Kind kind, const std::string& path, const std::string& reason);

    size_t leftOut_ = 0;
    size_t warnings_ = 0;
    bool changed_ = false;  // since the document was read or saved
};

}  // namespace dorvo
