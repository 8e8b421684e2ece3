// What a backup's run has noted that is no failure: what it left out, and what it warns of.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "json_spirit/json_spirit.h"

namespace dorvo::agent {

struct RunNote {
    std::string path;  // empty where the note is about no path
    std::string reason;
};

struct RunNotes {
    std::vector<RunNote> leftOut;
    std::vector<RunNote> warnings;
};

// Those of one run; none where it has no document, or a damaged one.
RunNotes loadNotes(const std::string& jobId, const std::string& instanceId);

// "leftOut" and "warnings", each an array of {"path", "reason"}.
void appendNotes(json_spirit::Ordered_object& json, const RunNotes& notes);

// "left out: C:\data\link: a link to another place", "warning: ..."; at most `most` of each kind,
// then how many more there are.
std::vector<std::string> noteLines(const std::vector<RunNote>& notes, const std::string& kind,
                                   size_t most);

}  // namespace dorvo::agent
