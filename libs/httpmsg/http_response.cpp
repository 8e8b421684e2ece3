#include "httpmsg/http_response.h"

namespace dorvo {

void HTTP_Response::reset() {
    HTTP_Base::reset();
    status_ = 0;
}

}  // namespace dorvo
