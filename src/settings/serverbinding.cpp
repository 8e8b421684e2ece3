#include "settings/serverbinding.h"

#include <algorithm>
#include <vector>

#include "settings/options.h"

namespace dorvo {
namespace {

constexpr const char* serversMember = "";

// Null when no entry has one.
const json_spirit::Object* serversOf(const StoreEntries& entries) {
    const auto member = entries.find(serversMember);
    return member != entries.end() && member->second.type() == json_spirit::obj_type
               ? &member->second.get_obj()
               : nullptr;
}

// Empty when it has none.
std::string serverOf(const StoreEntries& entries, const std::string& entry) {
    const json_spirit::Object* const servers = serversOf(entries);
    if (servers == nullptr) {
        return {};
    }
    const auto server = servers->find(entry);
    return server != servers->end() && server->second.type() == json_spirit::str_type
               ? server->second.get_str()
               : std::string();
}

}  // namespace

std::string serverName(const std::string& host, uint16_t port) {
    if (host.empty()) {
        return {};
    }
    std::string name = host + ":" + std::to_string(port);
    std::transform(name.begin(), name.end(), name.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    });
    return name;
}

std::string serverOfOptions() {
    std::string host;
    unsigned short port = 0;
    ATL::CComSingleton<OptionsImpl, ATL::CComAutoCriticalSection>::instance()->getServerInfo(host,
                                                                                             port);
    return serverName(host, port);
}

bool belongsTo(const StoreEntries& entries, const std::string& entry, const std::string& server) {
    const std::string own = serverOf(entries, entry);
    return own.empty() || server.empty() || own == server;
}

void bindToServer(StoreEntries& entries, const std::string& entry, const std::string& server) {
    const json_spirit::Object* const known = serversOf(entries);
    json_spirit::Object servers = known != nullptr ? *known : json_spirit::Object();
    if (server.empty()) {
        servers.erase(entry);
    } else {
        servers[entry] = server;
    }
    if (servers.empty()) {
        entries.erase(serversMember);
    } else {
        entries[serversMember] = std::move(servers);
    }
}

bool bindToServer(StoreEntries& entries, Bind which, const std::string& server) {
    std::vector<std::string> changed;
    for (const auto& [entry, value] : entries) {
        const std::string own = serverOf(entries, entry);
        if (value.type() == json_spirit::str_type && own != server &&
            (which == Bind::all || own.empty())) {
            changed.push_back(entry);
        }
    }
    for (const std::string& entry : changed) {
        bindToServer(entries, entry, server);
    }
    return !changed.empty();
}

}  // namespace dorvo
