#include "endpoints/backup_endpoints.h"

#include <algorithm>
#include <boost/json.hpp>
#include <memory>
#include <utility>

#include "common/service_error.h"
#include "common/service_log.h"
#include "endpoints/instance_access.h"
#include "endpoints/json_body.h"
#include "packages/backup_packages.h"

namespace dorvo {

namespace json = boost::json;

namespace {

constexpr size_t maxTime = 64;
constexpr size_t maxOffered = 100000;
constexpr size_t pageInstances = 1000;
// Of a backup; with more the client would never come to its end, so it is told to give up.
constexpr int64_t maxErrors = 1'000'000;
// Of a restore, for those who ask later; the client has all of them in its own record.
constexpr size_t maxRestoreErrors = 100'000;
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

json::object listed(const InstanceSummary& item) {
    return {{"machine", item.machine},         {"jobdefinitionid", item.definition},
            {"jobinstanceid", item.name},      {"starttime", item.startTime},
            {"endtime", item.endTime},         {"state", stateText(item.state)},
            {"totalfiles", item.totals.files}, {"totaldirectories", item.totals.directories},
            {"totalsize", item.totals.size},   {"errors", item.errors}};
}

void requireOpen(const Instance& instance) {
    if (instance.state != InstanceState::pending && instance.state != InstanceState::running) {
        refuseState(instance);
    }
    requireUndamaged(instance);
}

[[noreturn]] void refuseLost() {
    throw ServiceError(409, "the backup has lost data at the server");
}

void requireNotCancelled(const Instance& instance) {
    if (instance.state == InstanceState::cancelled) {
        refuseState(instance);
    }
}

}  // namespace

Instance BackupEndpoints::openOrFind(const Session& session, std::string_view name,
                                     std::string_view definition, bool compress, bool stores) {
    const auto instance = findOwnInstance(instances_, session, name);
    if (!instance || stores) {
        room_.requireForUpload();
    }
    if (!instance) {
        return instances_.openInstance(session, name, definition, compress);
    }
    if (instance->definition != definition) {
        throw ServiceError(409, "the backup belongs to another job");
    }
    return *instance;
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
    std::vector<bool> usable;  // of each that was asked about
    files.reserve(source.size());
    for (const json::value& element : source) {
        const json::object& file = objectElement(element, "source");
        const OfferedFile offered{anyTextMember(file, "path"),
                                  static_cast<int64_t>(joinHalves(u32Member(file, "mtimeHigh"),
                                                                  u32Member(file, "mtimeLow")))};
        usable.push_back(isPath(offered.path));
        if (usable.back()) {
            files.push_back(offered);
        }
    }
    const InstanceLocks::Guard guard(locks_, session.userId, name);
    const Instance instance = openOrFind(session, name, definition, compress, true);
    requireOpen(instance);
    const std::vector<bool> send = instances_.offerFiles(instance.id, files, compress, first);
    if (first) {
        freeSoon_();
    }
    // A path that no file can have here is asked for and not awaited: its uploadfile is refused,
    // alone, and the client knows which file it is.
    json::array wanted;
    size_t next = 0;
    for (size_t i = 0; i < source.size(); ++i) {
        if (!usable[i] || send[next++]) {
            wanted.push_back(json::object{{"path", source[i].at("path")}});
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
    const InstanceLocks::Guard guard(locks_, session.userId, name);
    // A backup without any file asked for no increment check and is new here.
    const Instance instance = openOrFind(session, name, definition, false, false);
    requireNotCancelled(instance);
    requireUndamaged(instance);
    if (instance.state == InstanceState::pending) {
        instances_.startInstance(instance.id, startTime, totals);
    }
    return {{"jobinstanceid", name}};
}

json::object BackupEndpoints::addErrorFiles(const Session& session, const json::object& body) {
    const std::string name(idMember(body, "jobinstanceid"));
    const std::vector<FailedFile> errors = errorsMember(body);
    if (const auto restore = restores_.findRestore(name);
        restore && restore->userId == session.userId) {
        restores_.addRestoreErrors(restore->id, errors, maxRestoreErrors);
        return {};
    }
    const InstanceLocks::Guard guard(locks_, session.userId, name);
    const Instance instance = ownInstance(instances_, session, name);
    requireNotCancelled(instance);
    if (instance.state == InstanceState::completed) {
        // A client whose answer got lost ends its run once more; nothing else may change the list.
        const bool known = std::all_of(errors.begin(), errors.end(), [&](const FailedFile& error) {
            return instances_.hasError(instance.id, error.path);
        });
        if (!known) {
            refuseState(instance);
        }
        return {};
    }
    if (instances_.countErrors(instance.id) + static_cast<int64_t>(errors.size()) > maxErrors) {
        throw ServiceError(409, "too many files of the backup have failed");
    }
    instances_.addErrors(instance.id, errors);
    // Of what is complete nobody would miss the error, and the next backup would carry it over.
    instances_.syncChanges();
    return {};
}

BackupEndpoints::Rest BackupEndpoints::endJob(const Session& session, const json::object& body) {
    const std::string name(idMember(body, "jobinstanceid"));
    const std::string endTime(textMember(body, "endtime", maxTime));
    const auto guard = std::make_shared<InstanceLocks::Guard>(locks_, session.userId, name,
                                                              InstanceLocks::Hold::ending);
    const Instance instance = ownInstance(instances_, session, name);
    if (instance.state == InstanceState::completed) {
        return {};
    }
    requireRunning(instance);
    return [this, guard, instance, endTime] {
        complete(instance, endTime);
        return json::object();
    };
}

void BackupEndpoints::complete(const Instance& instance, std::string_view endTime) {
    // Carried-over packages lie where earlier backups have left them.
    const std::optional<int64_t> items = checkPackages(instances_, blocks_, instance.id);
    if (!items) {
        logEvent("damaged: the list of backup " + instance.name);
        instances_.damageInstance(instance.id);
        refuseLost();
    }
    if (auto paths = instances_.listIncomplete(instance.id, maxNamed, maxNamedBytes);
        !paths.empty()) {
        throw IncompleteBackup(std::move(paths));
    }
    // The order makes "completed" a promise: bytes and their names first, then the state.
    for (const PackedContainer& container : instances_.listPacked(instance.id)) {
        if (!blocks_.sync(container.id, container.length)) {
            instances_.damageInstance(instance.id);
            refuseLost();
        }
    }
    // A sync point may have learnt meanwhile what no later sync is told.
    if (!instances_.completeInstance(instance.id, endTime, *items)) {
        refuseLost();
    }
}

BackupEndpoints::Rest BackupEndpoints::cancelJob(const Session& session, const json::object& body) {
    const std::string name(idMember(body, "id"));
    const auto guard = std::make_shared<InstanceLocks::Guard>(locks_, session.userId, name,
                                                              InstanceLocks::Hold::ending);
    const Instance instance = ownInstance(instances_, session, name);
    if (instance.state == InstanceState::completed) {
        refuseState(instance);
    }
    return [this, guard, id = instance.id] {
        cancel(id);
        return json::object();
    };
}

void BackupEndpoints::cancel(int64_t instance) {
    // Should the process die in between, the next start of the service goes on with it.
    room_.givingWay([&] { instances_.cancelInstance(instance); });
    freeGivenUp(instances_, blocks_);
}

void BackupEndpoints::giveUp(int64_t id, int64_t idle) {
    const auto found = instances_.findInstance(id);
    if (!found) {
        return;
    }
    const InstanceLocks::Guard guard(locks_, found->userId, found->name,
                                     InstanceLocks::Hold::ending);
    const auto instance = instances_.findInstance(id);  // as it is now that nobody else is at it
    if (!instance || instance->idle < idle ||
        (instance->state != InstanceState::pending && instance->state != InstanceState::running)) {
        return;
    }
    cancel(instance->id);
    logEvent("backup " + found->name + " of machine " + instance->machine +
             " is cancelled: no request has come about it in " + std::to_string(instance->idle) +
             " seconds of service");
}

json::object BackupEndpoints::listInstances(const Session& session, const json::object& body) {
    const std::string_view machine = textMember(body, "machine", maxIdBytes);
    const std::string_view definition = textMember(body, "jobdefinitionid", maxIdBytes);
    // A client that knows of no pages wants all of them.
    const bool paged = body.contains("limit");
    size_t limit = pageInstances;
    int64_t after = 0;
    if (paged) {
        limit = std::min(limit, static_cast<size_t>(countMember(body, "limit")));
        if (limit == 0) {
            throw ServiceError(400, "\"limit\" must not be 0");
        }
        if (const auto name = textMember(body, "after", maxIdBytes); !name.empty()) {
            after = ownInstance(instances_, session, name).id;
        }
    }
    json::array list;
    std::string next;
    bool more = true;
    while (more) {
        const auto page =
            instances_.listInstances(session.userId, machine, definition, after, limit + 1);
        more = page.size() > limit;
        for (size_t i = 0; i < std::min(page.size(), limit); ++i) {
            list.push_back(listed(page[i]));
            after = page[i].id;
            next = page[i].name;
        }
        if (paged) {
            return {{"instances", std::move(list)}, {"next", more ? next : ""}};
        }
    }
    return {{"instances", std::move(list)}};
}

}  // namespace dorvo
