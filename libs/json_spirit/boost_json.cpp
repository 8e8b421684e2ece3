// Boost.JSON is compiled here, once: no other source pays for it.
#include <boost/json/src.hpp>
