// The checksum of each user's keys, by which a machine learns that it holds the wrong ones before
// it encrypts anything with them. The keys themselves never come here.
//
// Each call throws ServiceError to refuse, and has then changed nothing. Any thread.
#pragma once

#include <boost/json/fwd.hpp>

#include "catalog/catalog.h"

namespace dorvo {

class KeyEndpoints {
public:
    // Borrows the catalog.
    explicit KeyEndpoints(Catalog& catalog) : catalog_(catalog) {}

    boost::json::object getMd5OfKeys(const Session& session, const boost::json::object& body);
    boost::json::object exportMd5OfKeys(const Session& session, const boost::json::object& body);

private:
    Catalog& catalog_;
};

}  // namespace dorvo
