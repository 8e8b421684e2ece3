// Asks the web server which files of a run need a backup.
//
// One object asks for one list, from its first file on; another one begins the list anew.
//
// Looks up the user's cookie and the server when it is asked. One thread; the stop signal, which
// breaks off a request, is borrowed.
#pragma once

#include <string>
#include <vector>

#include "base/interrupter.h"
#include "source/incrementcheck.h"
#include "storage/storagetask.h"
#include "storage/web/web_session.h"

namespace dorvo {

class Web_Increment_Check : public IncrementCheck {
public:
    Web_Increment_Check(std::string user, BackupTask task);

    // False: logged; the last error is that of a refused session when there is no cookie, 87 when
    // no server is set, 13 when the answer names files that were not asked for.
    bool check(const std::vector<File>& files, std::vector<bool>& send) override;

private:
    const BackupTask task_;
    interrupter stop_;
    Web_Session session_;
    bool first_ = true;  // nothing was answered yet
};

// Marks the files that the answer names, both in the same order. False when it names another one.
bool markNamed(const std::vector<std::string>& asked, const std::vector<std::string>& named,
               std::vector<bool>& marks);

}  // namespace dorvo
