#include "control/controlservice.h"

#include <windows.h>

#include <algorithm>
#include <chrono>
#include <iterator>

#include "base/text.h"
#include "data/jobstore.h"
#include "job/statetable.h"
#include "jobdef/jobdefinitionfactory.h"
#include "record/jobactivityhandle.h"
#include "text/agenterror.h"
#include "text/version.h"

namespace dorvo::agent {

using json_spirit::Object;
using json_spirit::Value;

namespace {

constexpr size_t definitionBytes = size_t{1} << 20U;
constexpr size_t smallBytes = size_t{16} << 10U;
constexpr std::chrono::seconds pollPatience(25);
// Calls that wait for the storage server at a time: the other half of the workers stays free.
constexpr int slowCalls = 4;
constexpr std::string_view statePath = "/jobnotify/";
constexpr std::string_view eventsPath = "/control/events";
constexpr std::string_view statusPath = "/control/status";

// Whether a Host header names this machine itself: localhost, 127.0.0.1 or [::1], with or without a
// port. A page of the web that was made to resolve to 127.0.0.1 brings its own name. What comes
// here is well-formed: the server has refused any other.
bool isLoopbackHost(std::string_view host) {
    constexpr std::string_view names[] = {"localhost", "127.0.0.1", "[::1]"};
    host = host.substr(0, host.find(':', host.starts_with('[') ? host.find(']') : 0));
    return std::any_of(std::begin(names), std::end(names),
                       [host](std::string_view name) { return equalsIgnoreCase(host, name); });
}

// Whether an Authorization header is "Bearer " and the token. Takes the same time wherever they
// differ.
bool bearsToken(std::string_view authorization, std::string_view token) {
    constexpr std::string_view scheme = "Bearer ";
    if (!authorization.starts_with(scheme)) {
        return false;
    }
    authorization.remove_prefix(scheme.size());
    if (authorization.size() != token.size() || token.empty()) {
        return false;
    }
    unsigned difference = 0;
    for (size_t i = 0; i < token.size(); ++i) {
        difference |= static_cast<unsigned char>(token[i] ^ authorization[i]);
    }
    return difference == 0;
}

// Counts what is under way while it lives.
class Counted {
public:
    explicit Counted(std::atomic<int>& count) : count_(count), before_(count++) {}
    ~Counted() { --count_; }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;

    int before() const { return before_; }

private:
    std::atomic<int>& count_;  // borrowed
    const int before_;
};

// The body is not what the request takes.
struct Malformed : std::runtime_error {
    using std::runtime_error::runtime_error;
};

WebReply jsonReply(const Object& object, int status = 200) {
    WebReply reply;
    reply.status = status;
    reply.body = json_spirit::write(Value(object));
    return reply;
}

WebReply errorReply(int status, const std::string& sentence, ExitCode code = exitFailed) {
    return jsonReply({{"error", sentence}, {"code", static_cast<int>(code)}}, status);
}

WebReply eventsReply(EventLog::Page page) {
    json_spirit::Array texts;
    for (std::string& text : page.texts) {
        texts.emplace_back(std::move(text));
    }
    return jsonReply({{"next", page.next}, {"events", texts}});
}

// What `get` makes of a member.
template <class Get>
auto member(const Object& body, const char* name, const Get& get) {
    const std::string quoted = std::string("\"") + name + "\"";
    const auto found = body.find(name);
    if (found == body.end()) {
        throw Malformed("the request has no " + quoted);
    }
    try {
        return get(found->second);
    } catch (const std::runtime_error& error) {
        throw Malformed(quoted + ": " + error.what());
    }
}

std::string text(const Object& body, const char* name) {
    return member(body, name, [](const Value& value) {
        if (value.get_str().find('\0') != std::string::npos) {
            throw Malformed("the text contains NUL");
        }
        return value.get_str();
    });
}

uint16_t portOf(const Object& body) {
    return member(body, "port", [](const Value& value) {
        const int port = value.get_int();
        if (port < 1 || port > 65535) {
            throw Malformed("the port is none");
        }
        return static_cast<uint16_t>(port);
    });
}

Object bodyOf(const WebRequest& request) {
    Value value;
    try {
        json_spirit::read_or_throw(request.body, value);
    } catch (const json_spirit::Error_position& where) {
        throw Malformed("the request is no JSON: " + where.reason_);
    }
    if (value.type() != json_spirit::obj_type) {
        throw Malformed(std::string("the request is ") + value_type_name(value.type()) +
                        ", not an object");
    }
    return value.get_obj();
}

Object submit(Engine& engine, const Object& body, const GiveUp&) {
    const Object members =
        member(body, "definition", [](const Value& value) { return value.get_obj(); });
    const auto job = JobDefinitionFactory::createFromText(json_spirit::write(Value(members)));
    if (!job) {
        throw Malformed("the definition is none");
    }
    engine.submit(*job);
    return {};
}

template <JobVerb verb>
Object tell(Engine& engine, const Object& body, const GiveUp&) {
    engine.tell(verb, text(body, "id"));
    return {};
}

Object setServer(Engine& engine, const Object& body, const GiveUp&) {
    const bool keepLogin =
        body.contains("keeplogin") &&
        member(body, "keeplogin", [](const Value& value) { return value.get_bool(); });
    engine.setServer(text(body, "host"), portOf(body), text(body, "name"), keepLogin);
    return {};
}

Object setSnapshots(Engine& engine, const Object& body, const GiveUp&) {
    engine.setSnapshots(
        member(body, "enabled", [](const Value& value) { return value.get_bool(); }));
    return {};
}

Object login(Engine& engine, const Object& body, const GiveUp& giveUp) {
    engine.login(text(body, "user"), text(body, "password"), giveUp);
    return {};
}

Object logout(Engine& engine, const Object& body, const GiveUp& giveUp) {
    engine.logout(text(body, "user"), giveUp);
    return {};
}

Object importKeys(Engine& engine, const Object& body, const GiveUp&) {
    const ImportedKeys keys =
        engine.importKeys(toWide(text(body, "file")), text(body, "passphrase"), text(body, "user"));
    return {{"user", keys.user}, {"beside", keys.beside}};
}

Object status(const std::string& proof) {
    size_t running = 0;
    const JobList jobs = loadJobs();
    for (const auto& job : jobs) {
        JobActivity record{};
        if (JobActivityHandle::read(job->id().c_str(), record) &&
            isUnderWay(static_cast<JobState>(record.state))) {
            ++running;
        }
    }
    return {{"proof", proof},
            {"version", agentVersion},
            {"pid", GetCurrentProcessId()},
            {"jobs", jobs.size()},
            {"running", running}};
}

}  // namespace

struct ControlService::Endpoint {
    std::string_view path;
    size_t bodyLimit;
    // Null: not of the engine's.
    Object (*call)(Engine& engine, const Object& body, const GiveUp& giveUp);
    bool slow = false;  // waits for the storage server
};

const ControlService::Endpoint* ControlService::find(std::string_view path) {
    static constexpr Endpoint table[] = {
        {"/control/submit", definitionBytes, &submit},
        {"/control/start", smallBytes, &tell<JobVerb::start>},
        {"/control/resume", smallBytes, &tell<JobVerb::resume>},
        {"/control/pause", smallBytes, &tell<JobVerb::pause>},
        {"/control/stop", smallBytes, &tell<JobVerb::stop>},
        {"/control/remove", smallBytes, &tell<JobVerb::remove>},
        {"/control/server", smallBytes, &setServer},
        {"/control/snapshots", smallBytes, &setSnapshots},
        {"/control/login", smallBytes, &login, true},
        {"/control/logout", smallBytes, &logout, true},
        {"/control/importkeys", smallBytes, &importKeys},
        {eventsPath, smallBytes, nullptr},
        {statusPath, smallBytes, nullptr},
    };
    const auto* const found = std::find_if(std::begin(table), std::end(table),
                                           [path](const Endpoint& e) { return e.path == path; });
    return found == std::end(table) ? nullptr : found;
}

Admission ControlService::admit(const WebRequest& head) {
    Admission admission;
    // Pages in a browser send one of these, whatever host they name.
    const bool fromPage = head.find("Origin") != nullptr || head.find("Sec-Fetch-Site") != nullptr;
    const bool ownHost = isLoopbackHost(head.field("Host")) && !fromPage;
    if (ownHost && head.path == statePath && head.method == "GET") {
        return admission;
    }
    if (!ownHost || !bearsToken(head.field("Authorization"), token_)) {
        admission.refusal = refuse(403, "This needs the token of the agent's control file");
        return admission;
    }
    admission.known = true;
    const Endpoint* endpoint = find(head.path);
    if (endpoint == nullptr) {
        admission.refusal = refuse(404, "The agent has no such request");
    } else if (head.method != "POST") {
        admission.refusal = refuse(405, "The agent takes this request as POST only");
        admission.refusal->allow = "POST";
    } else {
        admission.bodyLimit = endpoint->bodyLimit;
        admission.watched = endpoint->slow;
    }
    return admission;
}

std::optional<LongPoll> ControlService::handle(const WebRequest& request, Respond respond) {
    WebReply reply;
    try {
        if (request.path == statePath) {
            return pollState(request.mark, respond);
        }
        const Endpoint& endpoint = *find(request.path);
        const Object body = bodyOf(request);
        if (endpoint.path == eventsPath) {
            const auto after =
                member(body, "after", [](const Value& value) { return value.get_int64(); });
            return pollEvents(after, respond);
        }
        reply =
            endpoint.path == statusPath ? jsonReply(status(proof_)) : call(endpoint, request, body);
    } catch (const AgentError& error) {
        reply = errorReply(409, error.what(), error.code());
    } catch (const Malformed& error) {
        reply = errorReply(400, std::string("The agent cannot take the request: ") + error.what());
    } catch (const std::exception& error) {
        reply = errorReply(409, std::string("The agent failed: ") + error.what());
    }
    respond(std::move(reply));
    return {};
}

WebReply ControlService::call(const Endpoint& endpoint, const WebRequest& request,
                              const Object& body) {
    const GiveUp gone = [&request] { return request.gone && *request.gone; };
    if (!endpoint.slow) {
        return jsonReply(endpoint.call(engine_, body, gone));
    }
    const Counted counted(slow_);
    if (counted.before() >= slowCalls) {
        return refuse(503, "The agent waits for the storage server with other commands");
    }
    return jsonReply(endpoint.call(engine_, body, gone));
}

std::optional<LongPoll> ControlService::pollEvents(int64_t after, const Respond& respond) {
    const int64_t newest = events_.newest();
    if (after < 0) {
        respond(eventsReply({newest, {}}));
        return {};
    }
    const uint64_t waiter = events_.waitForEvents(
        after, [respond](EventLog::Page page) { respond(eventsReply(std::move(page))); });
    if (waiter == 0) {
        return {};
    }
    return LongPoll{[this, waiter] { events_.cancel(waiter); }, pollPatience,
                    eventsReply({std::min(after, newest), {}})};
}

std::optional<LongPoll> ControlService::pollState(int64_t mark, const Respond& respond) {
    const uint64_t waiter =
        events_.waitForState(mark < 0 ? events_.newest() : mark, [respond](EventLog::Page page) {
            WebReply reply;
            reply.body = std::move(page.texts.front());
            reply.mark = page.next;
            respond(std::move(reply));
        });
    if (waiter == 0) {
        return {};
    }
    // Whoever asks takes an answer without a state for none and does not ask again: no patience.
    return LongPoll{[this, waiter] { events_.cancel(waiter); }, {}, {}};
}

WebReply ControlService::refuse(int status, const char* why) {
    return errorReply(status, why);
}

}  // namespace dorvo::agent
