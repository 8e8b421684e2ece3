#include "run/runwords.h"

namespace dorvo::agent {

RunWords wordsOf(const JobDefinition& job) {
    const bool web = job.storage() == StorageKind::web;
    const std::string place = web ? "the server" : "the folder of its backups";
    if (job.type() != JobDefinition::backupType) {
        return {.verb = "Restore",
                .looking = "is looking for what to bring back",
                .ahead = "to restore",
                .done = "restored",
                .place = place,
                .viaNetwork = web,
                .restores = true};
    }
    return {.verb = "Backup",
            .looking = "is looking for what has changed",
            .ahead = web ? "to send" : "to store",
            .done = web ? "sent" : "stored",
            .place = place,
            .viaNetwork = web,
            .restores = false};
}

}  // namespace dorvo::agent
