// Passwords at rest: scrypt with a salt of their own, as one line of text.
//
// Text: "scrypt:<log2 N>:<r>:<p>:<salt, hex>:<hash, hex>". The cost stands in the text, so that it
// can be raised later without touching the accounts there are. One check takes about 32 MiB and a
// tenth of a second, on purpose.
#pragma once

#include <string>
#include <string_view>

namespace dorvo {

std::string hashPassword(std::string_view password);

// False for another password and for a text that is no hash. An empty text costs as much time as a
// real one, so that an answer does not tell whether an account exists.
bool passwordMatches(std::string_view password, std::string_view hash);

}  // namespace dorvo
