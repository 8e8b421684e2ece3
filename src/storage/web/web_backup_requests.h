// The requests of a backup to the web storage service, each the payload of one command.
//
// All are POSTs of HTTP/1.1 with the session cookie. prepare() refuses what must not be sent: it
// logs why and sets the last error, 87 unless it says otherwise.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "http_util/command_to_server.h"
#include "json_spirit/json_spirit.h"
#include "storage/request_bodies.h"

namespace dorvo {

// Opens the run at the service. Without a cookie the last error is that of a refused session.
class Start_Job_Request : public Request_T<json_spirit::Value> {
public:
    static constexpr uint64_t answer_timeout = HTTP_Command::LONG_ANSWER_TIMEOUT;

    Start_Job_Request() : Request_T("/dorvo/WebServer/jobs/StartJob.php") {}
    Start_Job_Request(const std::string& cookie, const std::string& definition_id,
                      const std::string& instance_id, const SourceTotals& totals,
                      const std::string& start_time);
    bool prepare() const;

private:
    std::string definition_id_;
    std::string instance_id_;
};

// Announces an item with its attributes and the size of its package.
class Upload_File_Request : public Request_T<json_spirit::Value> {
public:
    Upload_File_Request() : Request_T("/dorvo/Storage%20Server/backupServer/uploadfile.php") {}
    Upload_File_Request(const std::string& cookie, const std::string& instance_id,
                        const std::string& path, const ItemAttributes& attributes,
                        uint64_t package_size);
    bool prepare() const;

private:
    bool instance_ = false;  // there is an instance id, a path
    bool path_ = false;
};

// One block of a package. The bytes are borrowed until the command has run.
class Upload_Data_Request : public Request_T<FBuffer> {
public:
    Upload_Data_Request() : Request_T("/dorvo/Storage%20Server/backupServer/uploadblock.php") {}
    Upload_Data_Request(const std::string& cookie, const std::string& instance_id,
                        const std::string& path, const std::string& md5, uint32_t number,
                        std::span<const std::byte> block);
    bool prepare() const;

private:
    bool instance_ = false;  // there is an instance id, a path, an MD5
    bool path_ = false;
    bool md5_ = false;
};

class Submit_Errors_Request : public Request_T<json_spirit::Value> {
public:
    Submit_Errors_Request() : Request_T("/dorvo/WebServer/jobs/AddErrorFiles.php") {}
    Submit_Errors_Request(const std::string& cookie, const std::string& instance_id,
                          std::span<const FailedItem> errors);
};

class End_Job_Request : public Request_T<json_spirit::Value> {
public:
    static constexpr uint64_t answer_timeout = HTTP_Command::LONG_ANSWER_TIMEOUT;

    End_Job_Request() : Request_T("/dorvo/Storage%20Server/backupServer/endjob.php") {}
    End_Job_Request(const std::string& cookie, const std::string& instance_id,
                    const std::string& end_time);
};

class Stop_Job_Request : public Request_T<json_spirit::Value> {
public:
    static constexpr uint64_t answer_timeout = HTTP_Command::LONG_ANSWER_TIMEOUT;

    Stop_Job_Request() : Request_T("/dorvo/WebServer/jobs/CancelJob.php") {}
    Stop_Job_Request(const std::string& cookie, const std::string& instance_id);
};

// Asks which files of a batch need sending.
class Increament_Check_Request : public Request_T<json_spirit::Value> {
public:
    static constexpr uint64_t answer_timeout = HTTP_Command::LONG_ANSWER_TIMEOUT;

    Increament_Check_Request() : Request_T("/dorvo/WebServer/catalog/FilesToBackup.php") {}
    Increament_Check_Request(const std::string& cookie, const std::string& definition_id,
                             const std::string& instance_id, bool compress, bool first,
                             std::span<const IncrementItem> items);
};

}  // namespace dorvo
