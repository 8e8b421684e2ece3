// The answers of a web storage service to a restore.
#include "storage/web/web_bodies.h"
#include "input.h"

using namespace dorvo;

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    json_spirit::Value answer;
    try {
        json_spirit::read_or_throw(std::string(fuzz::text(data, size)), answer);
    } catch (const json_spirit::Error_position&) {
        return 0;
    }
    RestoreTicket ticket;
    fuzz::require(!readRestoreTicket(answer, ticket) || !ticket.jobInstanceId.empty());
    StoredItem item;
    static_cast<void>(readStoredItem(answer, item));
    StoredPage page;
    if (readStoredPage(answer, "C:", 3, page)) {
        fuzz::require(page.items.size() <= 3 && (page.next.empty() || page.next > "C:"));
        for (const auto& listed : page.items) {
            const StoredPath path = storedPath("m", "i", listed.path);
            fuzz::require(path.folder.size() + path.name.size() <= listed.path.size());
        }
    }
    std::vector<std::string> paths;
    static_cast<void>(readIncrementAnswer(answer, paths));
    return 0;
}
