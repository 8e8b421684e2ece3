#include "storage/local/localinstancedocument.h"

#include <stdexcept>

#include "json_spirit/json_spirit.h"

namespace dorvo {
namespace {

using json_spirit::Object;
using json_spirit::Value;
using Document = LocalInstanceDocument;

constexpr size_t md5Digits = 32;

struct TextMember {
    const char* name;
    std::string Document::*text;
};
constexpr TextMember texts[] = {
    {"jobinstanceid", &Document::id},    {"jobdefinitionid", &Document::jobId},
    {"jobname", &Document::jobName},     {"machine", &Document::machine},
    {"user", &Document::user},           {"keymd5", &Document::keyMd5},
    {"starttime", &Document::startTime}, {"endtime", &Document::endTime},
};

struct NumberMember {
    const char* name;
    uint64_t Document::*number;
};
constexpr NumberMember numbers[] = {
    {"sequence", &Document::sequence},
    {"totalfiles", &Document::files},
    {"totaldirectories", &Document::directories},
    {"totalsize", &Document::size},
    {"carried", &Document::carried},
    {"awaited", &Document::awaited},
    {"errors", &Document::errors},
    {"records", &Document::records},
    {"indexsize", &Document::indexSize},
    {"packagessize", &Document::packagesSize},
};

constexpr const char* stateName = "state";
constexpr const char* runningText = "running";
constexpr const char* completedText = "completed";

Document read(const Object& members) {
    Document document;
    for (const TextMember& member : texts) {
        document.*member.text = members.at(member.name).get_str();
    }
    for (const NumberMember& member : numbers) {
        document.*member.number = members.at(member.name).get_uint64();
    }
    const std::string& state = members.at(stateName).get_str();
    if (state != runningText && state != completedText) {
        throw std::runtime_error("there is no such state");
    }
    document.state = state == completedText ? Document::State::completed : Document::State::running;
    if (document.id.empty() || document.keyMd5.size() != md5Digits) {
        throw std::runtime_error("there is no id, or no MD5");
    }
    return document;
}

}  // namespace

std::string localStateText(LocalInstanceDocument::State state) {
    return state == Document::State::completed ? completedText : runningText;
}

std::string formatLocalInstance(const LocalInstanceDocument& document) {
    Object members;
    members[stateName] = localStateText(document.state);
    for (const TextMember& member : texts) {
        members[member.name] = document.*member.text;
    }
    for (const NumberMember& member : numbers) {
        members[member.name] = document.*member.number;
    }
    return json_spirit::write_formatted(Value(std::move(members)));
}

std::optional<LocalInstanceDocument> parseLocalInstance(const std::string& text) {
    try {
        Value value;
        json_spirit::read_or_throw(text, value);
        return read(value.get_obj());
    } catch (const json_spirit::Error_position&) {
        return std::nullopt;
    } catch (const std::runtime_error&) {
        return std::nullopt;
    } catch (const std::out_of_range&) {
        return std::nullopt;
    }
}

}  // namespace dorvo
