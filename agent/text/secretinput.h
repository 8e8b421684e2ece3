// A password or passphrase from standard input.
#pragma once

#include "text/secret.h"
#include "text/terminal.h"

namespace dorvo::agent {

// The first line; `what` names it. Throws AgentError when there is none, or when it is no text: in
// another coding the secret would be another one where it is typed.
Secret readSecretLine(Terminal& terminal, const std::string& what);

}  // namespace dorvo::agent
