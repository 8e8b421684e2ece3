#include "storage/web/web_backup_requests.h"

#include "base/uuid.h"
#include "storage/web/block_form.h"
#include "storage/web/request_refusal.h"

namespace dorvo {
namespace {

std::string newBoundary() {
    GUID id{};
    return createUuid(id) == 0 ? uuidText(id) : std::string();
}

}  // namespace

Start_Job_Request::Start_Job_Request(const std::string& cookie, const std::string& definition_id,
                                     const std::string& instance_id, const SourceTotals& totals,
                                     const std::string& start_time)
    : Start_Job_Request() {
    definition_id_ = definition_id;
    instance_id_ = instance_id;
    this->cookie(cookie.c_str());
    body(startJobBody(definition_id, instance_id, totals, start_time));
}

bool Start_Job_Request::prepare() const {
    if (!hasCookie(*this)) {
        return refuseSession();
    }
    if (instance_id_.empty()) {
        return refuse("Invalid job instance id.\n");
    }
    return !definition_id_.empty() || refuse("Invalid job definition id.\n");
}

Upload_File_Request::Upload_File_Request(const std::string& cookie, const std::string& instance_id,
                                         const std::string& path, const ItemAttributes& attributes,
                                         uint64_t package_size)
    : Upload_File_Request() {
    instance_ = !instance_id.empty();
    path_ = !path.empty();
    this->cookie(cookie.c_str());
    body(uploadFileBody(instance_id, path, attributes, package_size));
}

bool Upload_File_Request::prepare() const {
    if (!hasCookie(*this)) {
        return refuse("The Cookie is empty.\n");
    }
    if (!instance_) {
        return refuse("The instance id is empty.\n");
    }
    return path_ || refuse("The source path is empty.\n");
}

Upload_Data_Request::Upload_Data_Request(const std::string& cookie, const std::string& instance_id,
                                         const std::string& path, const std::string& md5,
                                         uint32_t number, std::span<const std::byte> block)
    : Upload_Data_Request() {
    instance_ = !instance_id.empty();
    path_ = !path.empty();
    md5_ = !md5.empty();
    this->cookie(cookie.c_str());
    const BlockForm form{newBoundary(), md5, instance_id, path, number};
    content_type(blockFormContentType(form).c_str());
    headers().put(HTTP_HEAD_ACCEPT_ENCODING, "gip, deflate");
    body(FBuffer(blockFormPrefix(form), block.data(), block.size(), blockFormSuffix(form)));
}

bool Upload_Data_Request::prepare() const {
    if (!hasCookie(*this)) {
        return refuse("The Cookie is empty.\n");
    }
    if (!instance_) {
        return refuse("The instance id is empty.\n");
    }
    if (!path_) {
        return refuse("The source path is empty.\n");
    }
    return md5_ || refuse("The md5 is empty.\n");
}

Submit_Errors_Request::Submit_Errors_Request(const std::string& cookie,
                                             const std::string& instance_id,
                                             std::span<const FailedItem> errors)
    : Submit_Errors_Request() {
    this->cookie(cookie.c_str());
    body(submitErrorsBody(instance_id, errors));
}

End_Job_Request::End_Job_Request(const std::string& cookie, const std::string& instance_id,
                                 const std::string& end_time)
    : End_Job_Request() {
    this->cookie(cookie.c_str());
    body(endJobBody(instance_id, end_time));
}

Stop_Job_Request::Stop_Job_Request(const std::string& cookie, const std::string& instance_id)
    : Stop_Job_Request() {
    this->cookie(cookie.c_str());
    body(stopJobBody(instance_id));
}

Increament_Check_Request::Increament_Check_Request(const std::string& cookie,
                                                   const std::string& definition_id,
                                                   const std::string& instance_id, bool compress,
                                                   bool first, std::span<const IncrementItem> items)
    : Increament_Check_Request() {
    this->cookie(cookie.c_str());
    body(incrementCheckBody(definition_id, instance_id, compress, first, items));
}

}  // namespace dorvo
