#include "text/secret.h"

#include "base/text.h"
#include "text/agenterror.h"

namespace dorvo::agent {

Secret readSecretLine(Terminal& terminal, const std::string& what) {
    Secret secret;
    if (!terminal.readLine(secret.text) || secret.text.empty()) {
        throw AgentError("No " + what + " came from standard input", exitUsage);
    }
    // UTF-16 is valid UTF-8 as far as it is ASCII, but for its zeros.
    if (!isUtf8(secret.text) || secret.text.find('\0') != std::string::npos) {
        throw AgentError("The " + what + " from standard input is not UTF-8 text", exitUsage);
    }
    return secret;
}

}  // namespace dorvo::agent
