#include "storage/web/web_restore_requests.h"

#include "storage/web/request_refusal.h"

namespace dorvo {
namespace {

bool hasPlace(const HTTP_Request& request, const StoredPath& path) {
    if (!hasCookie(request)) {
        return refuseSession();
    }
    if (path.jobInstanceId.empty()) {
        return refuse("Invalid job instance id.\n");
    }
    if (path.machine.empty()) {
        return refuse("Invalid machine name.\n");
    }
    if (path.folder.empty()) {
        return refuse("Invalid path.\n");
    }
    return !path.name.empty() || refuse("Invalid file name.\n");
}

}  // namespace

Start_Restore_Job_Request::Start_Restore_Job_Request(const std::string& cookie,
                                                     const std::string& definition_id,
                                                     const std::string& instance_id)
    : Start_Restore_Job_Request() {
    definition_id_ = definition_id;
    instance_id_ = instance_id;
    this->cookie(cookie.c_str());
    body(startRestoreJobBody(definition_id, instance_id));
}

bool Start_Restore_Job_Request::prepare() const {
    if (!hasCookie(*this)) {
        return refuseSession();
    }
    if (instance_id_.empty()) {
        return refuse("Invalid job instance id.\n");
    }
    return !definition_id_.empty() || refuse("Invalid job definition id.\n");
}

Get_File_Info_Request::Get_File_Info_Request(const std::string& cookie, const StoredPath& path)
    : Get_File_Info_Request() {
    path_ = path;
    this->cookie(cookie.c_str());
    body(fileInfoBody(path));
}

bool Get_File_Info_Request::prepare() const {
    return hasPlace(*this, path_);
}

Download_Data_Request::Download_Data_Request(const std::string& cookie, const StoredPath& path,
                                             uint64_t index)
    : Download_Data_Request() {
    path_ = path;
    this->cookie(cookie.c_str());
    body(downloadBody(path, index));
}

bool Download_Data_Request::prepare() const {
    return hasPlace(*this, path_);
}

Submit_History_Request::Submit_History_Request(const std::string& cookie,
                                               const json_spirit::Object& history)
    : Submit_History_Request() {
    this->cookie(cookie.c_str());
    body(history);
}

bool Submit_History_Request::prepare() const {
    if (!hasCookie(*this)) {
        return refuseSession();
    }
    return !body().get_obj().empty() || refuse("Invalid history information.\n");
}

List_Files_Request::List_Files_Request(const std::string& cookie, const std::string& machine,
                                       const std::string& instance_id, const std::string& path,
                                       const std::string& after, unsigned limit)
    : List_Files_Request() {
    machine_ = machine;
    instance_id_ = instance_id;
    this->cookie(cookie.c_str());
    body(listFilesBody(machine, instance_id, path, after, limit));
}

bool List_Files_Request::prepare() const {
    if (!hasCookie(*this)) {
        return refuseSession();
    }
    if (instance_id_.empty()) {
        return refuse("Invalid job instance id.\n");
    }
    return !machine_.empty() || refuse("Invalid machine name.\n");
}

}  // namespace dorvo
