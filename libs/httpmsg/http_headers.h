// The header fields of one message: a slot for each known type, a map for the other names.
//
// Values are copied in and owned. A value with CR, LF or NUL in it is refused, as is a name that is
// no HTTP token: nothing that came from a user or a server can add a line of its own to a message.
#pragma once

#include <array>
#include <map>
#include <optional>
#include <string>

#include "httpmsg/export.h"
#include "httpmsg/http_names.h"

namespace dorvo {

class DORVO_HTTPMSG_API HTTP_Headers {
public:
    struct Name_Less {
        bool operator()(const std::string& a, const std::string& b) const;
    };
    using Other_Heads = std::map<std::string, std::string, Name_Less>;

    // 0; -1 for a type outside 0 to 46 or a refused value, with nothing changed. A null value
    // empties the slot.
    int put(int type, const char* value);
    int put(int type, const std::string& value);

    // A known name fills its slot, another one the map. A null value removes.
    int put(const char* name, const char* value);
    int put(const std::string& name, const std::string& value);

    // The value, valid until the slot changes; null for an empty slot or a type outside 0 to 46.
    const char* get(int type) const;
    // Without regard to case.
    const char* get(const char* name) const;

    // Empties all slots.
    void reset_i();
    // Empties the slots and the map.
    void reset();

    // The fields whose names have no slot.
    const Other_Heads& others() const { return others_; }

private:
    std::array<std::optional<std::string>, HTTP_HEAD_TYPES> slots_;
    Other_Heads others_;
};

// True for a text that may stand in a header's value: no CR, LF or NUL.
DORVO_HTTPMSG_API bool is_http_head_value(const std::string& text);

}  // namespace dorvo
