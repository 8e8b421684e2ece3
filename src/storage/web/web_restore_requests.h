// The requests of a restore from the web storage service, each the payload of one command.
//
// All are POSTs of HTTP/1.1 with the session cookie. prepare() refuses what must not be sent: it
// logs why and sets the last error, 87 unless there is no cookie: then that of a refused session.
// The failed items go with Submit_Errors_Request, as those of a backup.
#pragma once

#include <cstdint>
#include <string>

#include "http_util/command_to_server.h"
#include "json_spirit/json_spirit.h"
#include "storage/web/restore_bodies.h"

namespace dorvo {

// Opens the restore of one run of a backup job.
class Start_Restore_Job_Request : public Request_T<json_spirit::Value> {
public:
    static constexpr uint64_t answer_timeout = HTTP_Command::LONG_ANSWER_TIMEOUT;

    Start_Restore_Job_Request() : Request_T("/dorvo/WebServer/jobs/StartRestoreJob.php") {}
    Start_Restore_Job_Request(const std::string& cookie, const std::string& definition_id,
                              const std::string& instance_id);
    bool prepare() const;

private:
    std::string definition_id_;
    std::string instance_id_;
};

// Asks for an item's attributes and the size of its package.
class Get_File_Info_Request : public Request_T<json_spirit::Value> {
public:
    Get_File_Info_Request() : Request_T("/dorvo/Storage%20Server/RestoreServer/GetFileInfo.php") {}
    Get_File_Info_Request(const std::string& cookie, const StoredPath& path);
    bool prepare() const;

private:
    StoredPath path_;
};

// Asks for one block of a package; the index counts from 1.
class Download_Data_Request : public Request_T<json_spirit::Value> {
public:
    Download_Data_Request()
        : Request_T("/dorvo/Storage%20Server/RestoreServer/DownloadFileBlock.php") {}
    Download_Data_Request(const std::string& cookie, const StoredPath& path, uint64_t index);
    bool prepare() const;

private:
    StoredPath path_;
};

// Hands over the record of a restore that has ended.
class Submit_History_Request : public Request_T<json_spirit::Value> {
public:
    Submit_History_Request() : Request_T("/dorvo/WebServer/jobs/RestoreJobHistory.php") {}
    Submit_History_Request(const std::string& cookie, const json_spirit::Object& history);
    bool prepare() const;
};

// Asks for a page of the items of a backup.
class List_Files_Request : public Request_T<json_spirit::Value> {
public:
    static constexpr uint64_t answer_timeout = HTTP_Command::LONG_ANSWER_TIMEOUT;

    List_Files_Request() : Request_T("/dorvo/WebServer/catalog/ListFiles.php") {}
    List_Files_Request(const std::string& cookie, const std::string& machine,
                       const std::string& instance_id, const std::string& path,
                       const std::string& after, unsigned limit);
    bool prepare() const;

private:
    std::string machine_;
    std::string instance_id_;
};

}  // namespace dorvo
