// The requests to the web storage service, each the payload of one command: where it goes, what it
// says, how long its answer may take, and what it must not be sent without.
//
// All are POSTs of HTTP/1.1. The cookie is put on them by the session that runs the command, and
// nowhere else. prepare(), which the command runner asks before each sending, refuses what must not
// be sent: it logs why and sets the last error, 87 unless a class says otherwise. A required cookie
// is what it looks for first.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "base/log.h"
#include "http_util/http_command.h"
#include "json_spirit/json_spirit.h"
#include "storage/web/web_bodies.h"

namespace dorvo {

// What a request must not be sent without: whether it is there, and what the log says if not.
struct Needed {
    bool there;
    LogText<> words;
};

// Whether a request without a cookie is refused, and like what.
enum class NoCookie {
    is_sent,           // the service says what it thinks of it
    is_like_a_401,     // fails as if the service had refused the session
    is_not_a_request,  // fails with 87
};

template <class Body>
class Web_Request : public Request_T<Body> {
public:
    bool prepare() const;

protected:
    explicit Web_Request(const char* path, Body body = {}, NoCookie without = NoCookie::is_sent,
                         std::vector<Needed> needed = {})
        : Request_T<Body>(path), without_(without), needed_(std::move(needed)) {
        this->body(std::move(body));
    }

private:
    NoCookie without_;
    std::vector<Needed> needed_;
};

// A user's account.

class Login_Request : public Web_Request<json_spirit::Value> {
public:
    static constexpr uint64_t answer_timeout = 60'000;  // somebody waits at a terminal

    Login_Request(const std::string& user, const std::string& password, const std::string& machine);
};

// Ends the session whose cookie is on it.
class Logout_Request : public Web_Request<json_spirit::Value> {
public:
    static constexpr uint64_t answer_timeout = 60'000;

    Logout_Request();
};

// A page of the runs that the service holds, those behind `after`.
class List_Instances_Request : public Web_Request<json_spirit::Value> {
public:
    static constexpr uint64_t answer_timeout = HTTP_Command::LONG_ANSWER_TIMEOUT;

    List_Instances_Request(const std::string& machine, const std::string& definition_id,
                           const std::string& after, int limit);
};

// Asks for the MD5 of the user's key that the service holds. Without a cookie: 401.
class Get_MD5_of_Keys_Reqeust : public Web_Request<json_spirit::Value> {
public:
    Get_MD5_of_Keys_Reqeust();
};

// Hands over the MD5; the service answers 409 when it holds another one. Without a cookie: 401.
class Export_MD5_of_Keys_Reqeust : public Web_Request<json_spirit::Value> {
public:
    explicit Export_MD5_of_Keys_Reqeust(const std::string& md5);
};

// A backup.

// Asks which files of a batch need sending.
class Increament_Check_Request : public Web_Request<json_spirit::Value> {
public:
    static constexpr uint64_t answer_timeout = HTTP_Command::LONG_ANSWER_TIMEOUT;

    Increament_Check_Request(const std::string& definition_id, const std::string& instance_id,
                             bool compress, bool first, std::span<const IncrementItem> items);
};

// Opens the run at the service. Without a cookie: 401.
class Start_Job_Request : public Web_Request<json_spirit::Value> {
public:
    static constexpr uint64_t answer_timeout = HTTP_Command::LONG_ANSWER_TIMEOUT;

    Start_Job_Request(const std::string& definition_id, const std::string& instance_id,
                      const SourceTotals& totals, const std::string& start_time);
};

// Announces an item with its attributes and the size of its package.
class Upload_File_Request : public Web_Request<json_spirit::Value> {
public:
    Upload_File_Request(const std::string& instance_id, const std::string& path,
                        const ItemAttributes& attributes, uint64_t package_size);
};

// One block of a package. The bytes are borrowed until the command has run.
class Upload_Data_Request : public Web_Request<FBuffer> {
public:
    Upload_Data_Request(const std::string& instance_id, const std::string& path,
                        const std::string& md5, uint32_t number, std::span<const std::byte> block);
};

// The failed items, those of a restore too.
class Submit_Errors_Request : public Web_Request<json_spirit::Value> {
public:
    Submit_Errors_Request(const std::string& instance_id, std::span<const FailedItem> errors);
};

class End_Job_Request : public Web_Request<json_spirit::Value> {
public:
    static constexpr uint64_t answer_timeout = HTTP_Command::LONG_ANSWER_TIMEOUT;

    End_Job_Request(const std::string& instance_id, const std::string& end_time);
};

class Stop_Job_Request : public Web_Request<json_spirit::Value> {
public:
    static constexpr uint64_t answer_timeout = HTTP_Command::LONG_ANSWER_TIMEOUT;

    explicit Stop_Job_Request(const std::string& instance_id);
};

// A restore. Without a cookie: 401.

// Opens the restore of one run of a backup job.
class Start_Restore_Job_Request : public Web_Request<json_spirit::Value> {
public:
    static constexpr uint64_t answer_timeout = HTTP_Command::LONG_ANSWER_TIMEOUT;

    Start_Restore_Job_Request(const std::string& definition_id, const std::string& instance_id);
};

// Asks for a page of the items of a backup.
class List_Files_Request : public Web_Request<json_spirit::Value> {
public:
    static constexpr uint64_t answer_timeout = HTTP_Command::LONG_ANSWER_TIMEOUT;

    List_Files_Request(const std::string& machine, const std::string& instance_id,
                       const std::string& path, const std::string& after, unsigned limit);
};

// Asks for an item's attributes and the size of its package.
class Get_File_Info_Request : public Web_Request<json_spirit::Value> {
public:
    explicit Get_File_Info_Request(const StoredPath& path);
};

// Asks for one block of a package; the index counts from 1.
class Download_Data_Request : public Web_Request<json_spirit::Value> {
public:
    Download_Data_Request(const StoredPath& path, uint64_t index);
};

// Hands over the record of a restore that has ended.
class Submit_History_Request : public Web_Request<json_spirit::Value> {
public:
    explicit Submit_History_Request(const json_spirit::Object& history);
};

}  // namespace dorvo
