#include "backup_endpoints.h"

#include <algorithm>
#include <boost/json.hpp>
#include <utility>

#include "given_up.h"
#include "instance_access.h"
#include "json_body.h"
#include "service_error.h"

namespace dorvo {

namespace json = boost::json;

namespace {

constexpr size_t maxTime = 64;
constexpr size_t maxOffered = 100000;
// Of the files that keep a backup from being completed, as many as one answer names.
constexpr size_t maxNamed = 1000;
constexpr size_t maxNamedBytes = size_t{128} << 10U;

// The three states that a client sees; a pending backup is one that is under way.
std::string_view stateText(InstanceState state) {
    switch (state) {
        case InstanceState::pending:
        case InstanceState::running: return "running";
        case InstanceState::completed: return "completed";
        case InstanceState::cancelled: return "cancelled";
    }
    return "";
}

void requireOpen(const Instance& instance) {
    if (instance.state != InstanceState::pending && instance.state != InstanceState::running) {
        refuseState(instance);
    }
}

void requireNotCancelled(const Instance& instance) {
    if (instance.state == InstanceState::cancelled) {
        refuseState(instance);
    }
}

}  // namespace

Instance BackupEndpoints::openOrFind(const Session& session, std::string_view name,
                                     std::string_view definition, bool compress) {
    if (!catalog_.findInstance(name)) {
        return catalog_.openInstance(session, name, definition, compress);
    }
    Instance instance = ownInstance(catalog_, session, name);
    if (instance.definition != definition) {
        throw ServiceError(409, "the backup belongs to another job");
    }
    return instance;
}

json::object BackupEndpoints::filesToBackup(const Session& session, const json::object& body) {
    const std::string_view definition = idMember(body, "id");
    const std::string name(idMember(body, "jobinstanceid"));
    const bool compress = flagMember(body, "compress");
    const bool first = body.contains("first") && flagMember(body, "first");
    const json::array& source = arrayMember(body, "source");
    if (source.size() > maxOffered) {
        throw ServiceError(413, "too many files in one request");
    }
    std::vector<OfferedFile> files;
    files.reserve(source.size());
    for (const json::value& element : source) {
        const json::object& file = objectElement(element, "source");
        files.push_back({checkPath(textMember(file, "path", maxPathBytes)),
                         static_cast<int64_t>(joinHalves(u32Member(file, "mtimeHigh"),
                                                         u32Member(file, "mtimeLow")))});
    }
    const InstanceLocks::Guard guard(locks_, name);
    const Instance instance = openOrFind(session, name, definition, compress);
    requireOpen(instance);
    const std::vector<bool> send = catalog_.offerFiles(instance.id, files, compress, first);
    if (first) {
        freeGivenUp(catalog_, blocks_);
    }
    json::array wanted;
    for (size_t i = 0; i < files.size(); ++i) {
        if (send[i]) {
            wanted.push_back(json::object{{"path", files[i].path}});
        }
    }
    return {{"source", std::move(wanted)}};
}

json::object BackupEndpoints::startJob(const Session& session, const json::object& body) {
    const std::string_view definition = idMember(body, "jobdefinitionid");
    const std::string name(idMember(body, "jobinstanceid"));
    const InstanceTotals totals{countMember(body, "totalfiles"),
                                countMember(body, "totaldirectories"),
                                countMember(body, "totalsize")};
    const std::string_view startTime = textMember(body, "starttime", maxTime);
    const InstanceLocks::Guard guard(locks_, name);
    // A backup without any file asked for no increment check and is new here.
    const Instance instance = openOrFind(session, name, definition, false);
    requireNotCancelled(instance);
    if (instance.state == InstanceState::pending) {
        catalog_.startInstance(instance.id, startTime, totals);
    }
    return {{"jobinstanceid", name}};
}

json::object BackupEndpoints::addErrorFiles(const Session& session, const json::object& body) {
    const std::string name(idMember(body, "jobinstanceid"));
    const std::vector<FailedFile> errors = errorsMember(body);
    if (const auto restore = catalog_.findRestore(name)) {
        if (restore->userId != session.userId) {
            throw ServiceError(403, "another user's restore");
        }
        catalog_.addRestoreErrors(restore->id, errors);
        return {};
    }
    const InstanceLocks::Guard guard(locks_, name);
    const Instance instance = ownInstance(catalog_, session, name);
    requireNotCancelled(instance);
    if (instance.state == InstanceState::completed) {
        // A client whose answer got lost ends its run once more; nothing else may change the list.
        const bool known = std::all_of(errors.begin(), errors.end(), [&](const FailedFile& error) {
            return catalog_.findError(instance.id, error.path).has_value();
        });
        if (!known) {
            refuseState(instance);
        }
        return {};
    }
    catalog_.addErrors(instance.id, errors);
    return {};
}

json::object BackupEndpoints::endJob(const Session& session, const json::object& body) {
    const std::string name(idMember(body, "jobinstanceid"));
    const std::string_view endTime = textMember(body, "endtime", maxTime);
    const InstanceLocks::Guard guard(locks_, name);
    const Instance instance = ownInstance(catalog_, session, name);
    if (instance.state == InstanceState::completed) {
        return {};
    }
    if (instance.state != InstanceState::running) {
        refuseState(instance);
    }
    if (instance.damaged) {
        throw ServiceError(409, "the backup may have lost data at the server");
    }
    if (auto paths = catalog_.listIncomplete(instance.id, maxNamed, maxNamedBytes);
        !paths.empty()) {
        throw IncompleteBackup(std::move(paths));
    }
    // The order makes "completed" a promise: bytes and their names first, then the state.
    for (const PackedContainer& container : catalog_.listPacked(instance.id)) {
        if (!blocks_.sync(container.id, container.length)) {
            catalog_.damageInstance(instance.id);
            throw ServiceError(409, "the backup has lost data at the server");
        }
    }
    catalog_.completeInstance(instance.id, endTime);
    return {};
}

json::object BackupEndpoints::cancelJob(const Session& session, const json::object& body) {
    const std::string name(idMember(body, "id"));
    const InstanceLocks::Guard guard(locks_, name);
    const Instance instance = ownInstance(catalog_, session, name);
    if (instance.state == InstanceState::completed) {
        refuseState(instance);
    }
    if (instance.state != InstanceState::cancelled) {
        catalog_.cancelInstance(instance.id);
    }
    freeGivenUp(catalog_, blocks_);
    return {};
}

json::object BackupEndpoints::listInstances(const Session& session, const json::object& body) {
    const std::string_view machine = textMember(body, "machine", maxIdBytes);
    const std::string_view definition = textMember(body, "jobdefinitionid", maxIdBytes);
    json::array list;
    for (const InstanceSummary& item :
         catalog_.listInstances(session.userId, machine, definition)) {
        list.push_back(json::object{{"machine", item.machine},
                                    {"jobdefinitionid", item.definition},
                                    {"jobinstanceid", item.name},
                                    {"starttime", item.startTime},
                                    {"endtime", item.endTime},
                                    {"state", stateText(item.state)},
                                    {"totalfiles", item.totals.files},
                                    {"totaldirectories", item.totals.directories},
                                    {"totalsize", item.totals.size},
                                    {"errors", item.errors}});
    }
    return {{"instances", std::move(list)}};
}

}  // namespace dorvo
