// Where backups are held: at the storage server for a user who has logged in, or in a folder.
//
// What fails ends in an AgentError. One thread.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "data/givenpaths.h"
#include "jobdef/jobdefinition.h"
#include "storage/backend.h"

namespace dorvo::agent {

class BackupPlace {
public:
    // `folder` empty: the server, whose address must be set, and a user who has logged in.
    // Otherwise a folder that is there (else wrong usage); `user` may stay empty.
    BackupPlace(const std::string& folder, const std::string& user);

    bool local() const { return !location_.empty(); }
    // The folder, absolute and as the disk spells it; empty for the server.
    const std::wstring& location() const { return location_; }
    // Whose session it is; in a folder who was asked for, or empty.
    const std::string& user() const { return user_; }

    // Gives the job this place to keep its backups, or to take them from.
    void assignTo(JobDefinition& job) const;

    // The runs of one machine and one job (each empty: all), the oldest of a job first. In a folder
    // those of every user unless one was asked for.
    std::vector<StoredInstance> runs(const std::string& machine, const std::string& jobId) const;

    std::unique_ptr<RestoreCatalog> catalog(const StoredInstance& run) const;
    // What `given` stands for in the run, which must hold something there.
    HeldPath find(RestoreCatalog& catalog, const StoredInstance& run,
                  const std::string& given) const;

    // A clause about a list that has lost so many items.
    static std::string lostWords(uint64_t missing);
    // A sentence for a listing that failed with this error.
    std::string failure(uint32_t error) const;
    // The command that lists the runs, for sentences that send the user there.
    std::string listing() const { return command("instances"); }

private:
    // `agent <words>` for this place.
    std::string command(const std::string& words) const;

    std::wstring location_;
    std::string user_;
    std::unique_ptr<Backend> backend_;
};

}  // namespace dorvo::agent
