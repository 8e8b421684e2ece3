// The name=value pairs of a URI's query, decoded.
//
// "+" stands for a blank and %XX for a byte; a "%" without two hexadecimal digits stands for
// itself. A name may occur more than once; pairs keep their order.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "httpmsg/export.h"

namespace dorvo {

class DORVO_HTTPMSG_API HTTP_Query_String {
public:
    HTTP_Query_String() = default;
    // `query` without its question mark.
    explicit HTTP_Query_String(const std::string& query) { parse(query); }

    void parse(const std::string& query);

    // The first value of that name; null when there is none.
    const char* get(const char* name) const;
    // Appends a pair.
    void add(const std::string& name, const std::string& value) {
        pairs_.emplace_back(name, value);
    }

    // The pairs as a query again, everything encoded that is not unreserved.
    std::string text() const;

    const std::vector<std::pair<std::string, std::string>>& pairs() const { return pairs_; }

    // %XX decoded; "+" becomes a blank only when `plus_is_blank`.
    static std::string decode(const std::string& text, bool plus_is_blank);
    static std::string encode(const std::string& text);

private:
    std::vector<std::pair<std::string, std::string>> pairs_;
};

}  // namespace dorvo
