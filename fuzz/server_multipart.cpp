// A multipart body behind the line of its content type: parts lie within it.
#include "common/service_error.h"
#include "endpoints/multipart.h"
#include "input.h"

using namespace dorvo;

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view body = fuzz::text(data, size);
    const std::string_view contentType = fuzz::takeUntil(body, '\n');
    try {
        const auto parts = parseMultipart(contentType, body);
        for (const FormPart& part : parts) {
            for (const std::string_view view : {part.name, part.fileName, part.content}) {
                fuzz::require(view.empty() ||
                              (view.data() >= body.data() &&
                               view.data() + view.size() <= body.data() + body.size()));
            }
        }
        static_cast<void>(formPart(parts, "jobinstanceid"));
    } catch (const ServiceError& error) {
        fuzz::require(error.status() == 400);
    }
    return 0;
}
