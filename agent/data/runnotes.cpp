#include "data/runnotes.h"

#include <algorithm>

#include "base/paths.h"
#include "base/text.h"
#include "record/jobhistory.h"
#include "record/jobhistorynotes.h"
#include "settings/jsonstorage.h"
#include "text/printable.h"

namespace dorvo::agent {
namespace {

std::string textOf(const json_spirit::Object& object, const char* name) {
    const auto found = object.find(name);
    return found != object.end() && found->second.type() == json_spirit::str_type
               ? found->second.get_str()
               : std::string();
}

json_spirit::Ordered_array toJson(const std::vector<RunNote>& notes) {
    json_spirit::Ordered_array array;
    for (const RunNote& note : notes) {
        array.emplace_back(
            json_spirit::Ordered_object{{"path", note.path}, {"reason", note.reason}});
    }
    return array;
}

}  // namespace

RunNotes loadNotes(const std::string& jobId, const std::string& instanceId) {
    RunNotes notes;
    std::wstring directory;
    JSONArrayStorage document;
    if (!jobDirectory(jobId, directory) ||
        !document.load(toUtf8(jobHistoryNotesPath(directory, instanceId)).c_str())) {
        return notes;
    }
    for (const json_spirit::Value& entry : document.values()) {
        if (entry.type() != json_spirit::obj_type) {
            continue;
        }
        const json_spirit::Object& object = entry.get_obj();
        const bool leftOut =
            textOf(object, "kind") == JobHistoryNotes::textOf(JobHistoryNotes::Kind::leftOut);
        (leftOut ? notes.leftOut : notes.warnings)
            .push_back({textOf(object, "path"), textOf(object, "reason")});
    }
    return notes;
}

void appendNotes(json_spirit::Ordered_object& json, const RunNotes& notes) {
    json.push_back({"leftOut", toJson(notes.leftOut)});
    json.push_back({"warnings", toJson(notes.warnings)});
}

std::vector<std::string> noteLines(const std::vector<RunNote>& notes, const std::string& kind,
                                   size_t most) {
    std::vector<std::string> lines;
    for (const RunNote& note : notes) {
        if (lines.size() == most) {
            lines.push_back(kind + ": " + std::to_string(notes.size() - most) +
                            " more, which --json lists");
            break;
        }
        lines.push_back(
            kind + ": " +
            printable(note.path.empty() ? note.reason : note.path + ": " + note.reason));
    }
    return lines;
}

}  // namespace dorvo::agent
