#include "record/jobhistorynotes.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "base/log.h"
#include "base/text.h"
#include "json_spirit/json_spirit.h"

namespace dorvo {
namespace {

using json_spirit::Object;
using json_spirit::Value;

// What the document holds may have been edited: other than texts count as empty.
std::string_view textIn(const Value& note, const char* name) {
    if (note.type() != json_spirit::obj_type) {
        return {};
    }
    const Object& object = note.get_obj();
    const auto found = object.find(name);
    return found != object.end() && found->second.type() == json_spirit::str_type
               ? std::string_view(found->second.get_str())
               : std::string_view();
}

}  // namespace

JobHistoryNotes::JobHistoryNotes(const std::string& path) {
    load(path.c_str());
    for (const Value& note : values_) {
        const bool leftOut = textIn(note, "kind") == textOf(Kind::leftOut);
        ++countOf(leftOut ? Kind::leftOut : Kind::warning);
    }
}

JobHistoryNotes::~JobHistoryNotes() = default;

void JobHistoryNotes::add(Kind kind, const std::wstring& path, const std::string& reason) {
    if (countOf(kind) < mostOfKind) {
        append(kind, toUtf8(path), reason);
    } else if (countOf(kind) == mostOfKind) {
        append(kind, {}, "there are more than are listed here");
    }
}

bool JobHistoryNotes::addOnce(Kind kind, const std::wstring& path, const std::string& reason) {
    const std::string name = toUtf8(path);
    const bool known = std::any_of(values_.begin(), values_.end(), [&](const Value& note) {
        return textIn(note, "kind") == textOf(kind) && textIn(note, "path") == name &&
               textIn(note, "reason") == reason;
    });
    if (!known) {
        add(kind, path, reason);
    }
    return !known;
}

void JobHistoryNotes::append(Kind kind, const std::string& path, const std::string& reason) {
    values_.emplace_back(Object{{"kind", textOf(kind)}, {"path", path}, {"reason", reason}});
    ++countOf(kind);
    changed_ = true;
}

void JobHistoryNotes::clear() {
    changed_ = changed_ || !values_.empty();
    values_.clear();
    leftOut_ = 0;
    warnings_ = 0;
}

bool JobHistoryNotes::save() {
    if (!changed_) {
        return true;
    }
    if (!JSONArrayStorage::save()) {
        return logFailed("Failed to save the notes of a run {%s}, %m.\n", path_);
    }
    changed_ = false;
    return true;
}

const char* JobHistoryNotes::textOf(Kind kind) {
    return kind == Kind::leftOut ? "leftOut" : "warning";
}

}  // namespace dorvo
