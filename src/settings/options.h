// The module's settings: where the web server is, snapshots, login and update timings.
//
// One object a process, reached through CComSingleton<OptionsImpl, CComAutoCriticalSection>; made
// on first use, when it reads "options" beside the host's executable or, when that is not there,
// "\options" in the data directory. Any thread. A value that is missing or of another type counts
// as its default. Setters write both files before they return.
#pragma once

#include <map>
#include <string>

#include "base/api.h"
#include "base/critical_section.h"
#include "base/singleton.h"
#include "json_spirit/value.h"

namespace dorvo {

class DORVO_JOB_API OptionsImpl {
public:
    OptionsImpl();
    OptionsImpl(const OptionsImpl& other);
    OptionsImpl& operator=(const OptionsImpl& other);
    ~OptionsImpl();

    // An empty host and port 80 when nothing is set.
    void getServerInfo(std::string& host, unsigned short& port) const;
    void getServerInfo(std::string& name, std::string& host, unsigned short& port) const;
    bool enableSnapshot() const;
    // A server that refuses connections, or whose name is not found, counts as a network failure
    // that passes: the job waits and retries.
    bool waitForServer() const;
    // The host's log file tells of progress too.
    bool logProgress() const;
    int loginRetrytimes() const;
    int loginAgainAfter() const;
    // Milliseconds.
    int update_start_at() const;
    int update_again_at() const;

    // A null or empty name keeps the earlier one. False, with nothing changed, for a null or empty
    // host or port 0; else whether the file could be written.
    bool setServerInfo(const char* name, const char* host, unsigned short port);

    // These return the value that was stored, after bringing one that is too small into its range.
    int loginRetrytimes(int times);
    int loginAgainAfter(int delay);
    int update_start_at(int delayMs);
    int update_again_at(int periodMs);
    bool waitForServer(bool wait);
    // Whether the file could be written.
    bool enableSnapshot(bool on);

private:
    bool init();
    bool save() const;
    bool read(const std::wstring& path);
    std::string text(const char* key) const;
    int number(const char* key, int fallback) const;
    bool truth(const char* key) const;
    template <class T>
    T store(const char* key, T value);

    mutable CriticalSection lock_;  // guards options_ and both files
    std::map<std::string, json_spirit::Value> options_;
};

}  // namespace dorvo

extern template class DORVO_JOB_API
    ATL::CComSingleton<dorvo::OptionsImpl, ATL::CComAutoCriticalSection>;
