#include "storage/web/web_requests.h"

#include <windows.h>

#include "base/error_codes.h"
#include "base/uuid.h"

namespace dorvo {
namespace {

using enum NoCookie;
using json_spirit::Object;

std::string newBoundary() {
    GUID id{};
    return createUuid(id) == 0 ? uuidText(id) : std::string();
}

bool mayBeSent(const HTTP_Request& request, NoCookie without, const std::vector<Needed>& needed) {
    const bool cookie = request.cookie() != nullptr && *request.cookie() != '\0';
    if (!cookie && without == is_like_a_401) {
        return logFailed(withHttpMark(401), "The cookie is empty.\n");
    }
    if (!cookie && without == is_not_a_request) {
        return logFailed(ERROR_INVALID_PARAMETER, "The Cookie is empty.\n");
    }
    for (const Needed& one : needed) {
        if (!one.there) {
            return logFailed(ERROR_INVALID_PARAMETER, one.words);
        }
    }
    return true;
}

std::vector<Needed> placeOf(const StoredPath& path) {
    return {{!path.jobInstanceId.empty(), "Invalid job instance id.\n"},
            {!path.machine.empty(), "Invalid machine name.\n"},
            {!path.folder.empty(), "Invalid path.\n"},
            {!path.name.empty(), "Invalid file name.\n"}};
}

FBuffer blockOf(const BlockForm& form, std::span<const std::byte> block) {
    return {blockFormPrefix(form), block.data(), block.size(), blockFormSuffix(form)};
}

}  // namespace

template <class Body>
bool Web_Request<Body>::prepare() const {
    return mayBeSent(*this, without_, needed_);
}
template class Web_Request<json_spirit::Value>;
template class Web_Request<FBuffer>;

Login_Request::Login_Request(const std::string& user, const std::string& password,
                             const std::string& machine)
    : Web_Request("/dorvo/WebServer/user/Login.php", loginBody(user, password, machine)) {}

Logout_Request::Logout_Request() : Web_Request("/dorvo/WebServer/user/Logout.php", Object()) {}

List_Instances_Request::List_Instances_Request(const std::string& machine,
                                               const std::string& definition_id,
                                               const std::string& after, int limit)
    : Web_Request("/dorvo/WebServer/catalog/ListInstances.php",
                  listInstancesBody(machine, definition_id, after, limit)) {}

Get_MD5_of_Keys_Reqeust::Get_MD5_of_Keys_Reqeust()
    : Web_Request("/dorvo/WebServer/keys/GetMD5ofKeys.php", Object(), is_like_a_401) {}

Export_MD5_of_Keys_Reqeust::Export_MD5_of_Keys_Reqeust(const std::string& md5)
    : Web_Request("/dorvo/WebServer/keys/ExportMD5ofKeys.php", Object{{"md5", md5}},
                  is_like_a_401) {}

Increament_Check_Request::Increament_Check_Request(const std::string& definition_id,
                                                   const std::string& instance_id, bool compress,
                                                   bool first, std::span<const IncrementItem> items)
    : Web_Request("/dorvo/WebServer/catalog/FilesToBackup.php",
                  incrementCheckBody(definition_id, instance_id, compress, first, items)) {}

Start_Job_Request::Start_Job_Request(const std::string& definition_id,
                                     const std::string& instance_id, const SourceTotals& totals,
                                     const std::string& start_time)
    : Web_Request("/dorvo/WebServer/jobs/StartJob.php",
                  startJobBody(definition_id, instance_id, totals, start_time), is_like_a_401,
                  {{!instance_id.empty(), "Invalid job instance id.\n"},
                   {!definition_id.empty(), "Invalid job definition id.\n"}}) {}

Upload_File_Request::Upload_File_Request(const std::string& instance_id, const std::string& path,
                                         const ItemAttributes& attributes, uint64_t package_size)
    : Web_Request("/dorvo/Storage%20Server/backupServer/uploadfile.php",
                  uploadFileBody(instance_id, path, attributes, package_size), is_not_a_request,
                  {{!instance_id.empty(), "The instance id is empty.\n"},
                   {!path.empty(), "The source path is empty.\n"}}) {}

Upload_Data_Request::Upload_Data_Request(const std::string& instance_id, const std::string& path,
                                         const std::string& md5, uint32_t number,
                                         std::span<const std::byte> block)
    : Web_Request("/dorvo/Storage%20Server/backupServer/uploadblock.php", {}, is_not_a_request,
                  {{!instance_id.empty(), "The instance id is empty.\n"},
                   {!path.empty(), "The source path is empty.\n"},
                   {!md5.empty(), "The md5 is empty.\n"}}) {
    const BlockForm form{newBoundary(), md5, instance_id, path, number};
    content_type(blockFormContentType(form).c_str());
    headers().put(HTTP_HEAD_ACCEPT_ENCODING, "gip, deflate");
    body(blockOf(form, block));
}

Submit_Errors_Request::Submit_Errors_Request(const std::string& instance_id,
                                             std::span<const FailedItem> errors)
    : Web_Request("/dorvo/WebServer/jobs/AddErrorFiles.php",
                  submitErrorsBody(instance_id, errors)) {}

End_Job_Request::End_Job_Request(const std::string& instance_id, const std::string& end_time)
    : Web_Request("/dorvo/Storage%20Server/backupServer/endjob.php",
                  endJobBody(instance_id, end_time)) {}

Stop_Job_Request::Stop_Job_Request(const std::string& instance_id)
    : Web_Request("/dorvo/WebServer/jobs/CancelJob.php", stopJobBody(instance_id)) {}

Start_Restore_Job_Request::Start_Restore_Job_Request(const std::string& definition_id,
                                                     const std::string& instance_id)
    : Web_Request("/dorvo/WebServer/jobs/StartRestoreJob.php",
                  startRestoreJobBody(definition_id, instance_id), is_like_a_401,
                  {{!instance_id.empty(), "Invalid job instance id.\n"},
                   {!definition_id.empty(), "Invalid job definition id.\n"}}) {}

List_Files_Request::List_Files_Request(const std::string& machine, const std::string& instance_id,
                                       const std::string& path, const std::string& after,
                                       unsigned limit)
    : Web_Request("/dorvo/WebServer/catalog/ListFiles.php",
                  listFilesBody(machine, instance_id, path, after, limit), is_like_a_401,
                  {{!instance_id.empty(), "Invalid job instance id.\n"},
                   {!machine.empty(), "Invalid machine name.\n"}}) {}

Get_File_Info_Request::Get_File_Info_Request(const StoredPath& path)
    : Web_Request("/dorvo/Storage%20Server/RestoreServer/GetFileInfo.php", fileInfoBody(path),
                  is_like_a_401, placeOf(path)) {}

Download_Data_Request::Download_Data_Request(const StoredPath& path, uint64_t index)
    : Web_Request("/dorvo/Storage%20Server/RestoreServer/DownloadFileBlock.php",
                  downloadBody(path, index), is_like_a_401, placeOf(path)) {}

Submit_History_Request::Submit_History_Request(const json_spirit::Object& history)
    : Web_Request("/dorvo/WebServer/jobs/RestoreJobHistory.php", history, is_like_a_401,
                  {{!history.empty(), "Invalid history information.\n"}}) {}

}  // namespace dorvo
