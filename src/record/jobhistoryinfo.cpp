#include "record/jobhistoryinfo.h"

#include <cstdio>
#include <utility>

#include "base/log.h"

namespace dorvo {

JobHistoryInfo::JobHistoryInfo(const std::string& path) {
    load(path.c_str());
}

JobHistoryInfo::~JobHistoryInfo() {
    if (changed_) {
        save();
    }
}

bool JobHistoryInfo::save() {
    if (!JSONObjectStorage::save()) {
        return logFailed("Failed to save the job history {%s}, %m.\n", path_);
    }
    changed_ = false;
    return true;
}

bool JobHistoryInfo::set(const char* key, json_spirit::Value value) {
    values_[key] = std::move(value);
    changed_ = true;
    return true;
}

bool JobHistoryInfo::setTime(const char* key, const FILETIME& utc) {
    std::string text = timeText(utc);
    return !text.empty() && set(key, std::move(text));
}

bool JobHistoryInfo::instanceId(const char* id) {
    return id != nullptr && *id != '\0' && set("instanceId", id);
}

bool JobHistoryInfo::type(const char* type) {
    return type != nullptr && set("type", type);
}

bool JobHistoryInfo::starttime(const FILETIME& utc) {
    return setTime("starttime", utc);
}

bool JobHistoryInfo::endtime(const FILETIME& utc) {
    return setTime("endtime", utc);
}

bool JobHistoryInfo::totalsize(int64_t bytes) {
    return set("totalsize", bytes);
}

bool JobHistoryInfo::filescount(int64_t files) {
    return set("filescount", files);
}

bool JobHistoryInfo::state(const char* state) {
    return state != nullptr && set("state", state);
}

bool JobHistoryInfo::speed(int32_t speed) {
    return set("speed", speed);
}

std::string JobHistoryInfo::timeText(const FILETIME& utc) {
    SYSTEMTIME time;
    if (FileTimeToSystemTime(&utc, &time) == 0) {
        return {};
    }
    char text[64];
    const int length =
        std::snprintf(text, sizeof text, "%d-%d-%d %.2d:%.2d:%.2d", time.wYear, time.wMonth,
                      time.wDay, time.wHour, time.wMinute, time.wSecond);
    return length > 0 ? std::string(text, static_cast<size_t>(length)) : std::string();
}

}  // namespace dorvo
