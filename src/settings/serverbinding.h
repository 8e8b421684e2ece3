// Which server the entries of a store belong to, so that no other gets a session or a password.
//
// A store keeps that in itself, in the member of the empty name, which no entry can have:
// {"entry" : "host:port"}. Its value is no text, so whoever looks for entries passes it over. An
// entry without a server, of a store of an older version, goes on with whichever server is set. The
// store holds its lock while it calls; serverOfOptions() takes that of the options and is called
// without.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "base/api.h"
#include "json_spirit/value.h"

namespace dorvo {

// What was asked for is at another server than the one that is set.
constexpr uint32_t errorOtherServer = 1229;

using StoreEntries = std::map<std::string, json_spirit::Value>;

// "host:port", of which case counts nothing; empty without a host.
DORVO_JOB_API std::string serverName(const std::string& host, uint16_t port);
// Of the server that is set; empty when none is.
DORVO_JOB_API std::string serverOfOptions();

// True also for an entry without a server, and where there is no server to ask about.
bool belongsTo(const StoreEntries& entries, const std::string& entry, const std::string& server);
// With an empty `server` the entry belongs to none; so it has to when it is taken out.
void bindToServer(StoreEntries& entries, const std::string& entry, const std::string& server);
// The entries without a server, or all of them. False when there is nothing to change.
enum class Bind { unbound, all };
bool bindToServer(StoreEntries& entries, Bind which, const std::string& server);

}  // namespace dorvo
