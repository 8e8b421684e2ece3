#include "command_line.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <stdexcept>

#include "httpd/client_address.h"
#include "storage_server.h"

namespace dorvo {

namespace {

// "127.0.0.1:8080" or "[::1]:8080".
void readListen(const std::string& text, ServerOptions& options) {
    const size_t colon = text.rfind(':');
    unsigned port = 65536;
    if (colon != std::string::npos) {
        const char* const end = text.data() + text.size();
        const auto [stop, error] = std::from_chars(text.data() + colon + 1, end, port);
        if (error != std::errc() || stop != end) {
            port = 65536;
        }
    }
    std::string address = text.substr(0, colon);
    if (address.starts_with('[') && address.ends_with(']')) {
        address = address.substr(1, address.size() - 2);
    } else if (address.find(':') != std::string::npos) {
        address.clear();  // where would the port begin?
    }
    if (port > 65535 || address.empty()) {
        throw std::runtime_error("--listen must be ADDRESS:PORT, not '" + text + "'");
    }
    options.address = address;
    options.port = static_cast<uint16_t>(port);
}

void readProxies(const std::vector<std::string>& proxies, HttpLimits& limits) {
    for (const std::string& proxy : proxies) {
        const auto address = plainAddress(proxy);
        if (!address) {
            throw std::runtime_error("--trusted-proxy must be an address, not '" + proxy + "'");
        }
        limits.trustedProxies.push_back(*address);
        limits.manyBehind.push_back(*address);
    }
}

// What the command line says in other words than the options.
struct Texts {
    std::string listen = "127.0.0.1:8080";
    std::string data = ServerOptions().data.string();
    std::vector<std::string> proxies;
    int64_t runLifetime = ServerOptions().runLifetime.count();
    std::optional<int64_t> reserve;  // MiB
};

void addOptions(CLI::App& app, Texts& texts, CommandLine& result) {
    const CLI::Range upToTenYears(int64_t{1}, int64_t{10} * 365 * 24 * 3600);
    HttpLimits& limits = result.options.limits;
    app.add_option("--listen", texts.listen,
                   "address and port to serve at; port 0 takes a free one")
        ->capture_default_str();
    app.add_option("--data", texts.data, "folder of the service's data")->capture_default_str();
    app.add_option("--log", result.logFile,
                   "file for the log, not standard error; SIGHUP opens it again");
    app.add_option("--session-lifetime", result.options.sessionLifetime,
                   "seconds of idleness after which a session ends")
        ->check(upToTenYears);
    app.add_option("--connections", limits.connections,
                   "connections at a time, as far as the limit of open files allows")
        ->check(CLI::Range(16, 100000))
        ->capture_default_str();
    app.add_option("--connections-per-address", limits.connectionsOfAddress,
                   "of them, from one address other than this machine's")
        ->check(CLI::Range(1, 100000))
        ->capture_default_str();
    app.add_option("--trusted-proxy", texts.proxies,
                   "address of a proxy that says in Forwarded or X-Forwarded-For whom it has a"
                   " request from; may be given several times")
        ->allow_extra_args(false);
    app.add_option("--run-lifetime", texts.runLifetime,
                   "seconds of service without a request after which an unfinished backup is "
                   "cancelled")
        ->capture_default_str()
        ->check(upToTenYears);
    app.add_option("--reserve", texts.reserve,
                   "MiB of the disk that uploads leave free; 1 % when left out, at most 1024")
        ->check(CLI::Range(int64_t{0}, int64_t{1} << 30U));
}

void readTexts(const Texts& texts, ServerOptions& options) {
    readListen(texts.listen, options);
    readProxies(texts.proxies, options.limits);
    options.data = texts.data;
    options.runLifetime = std::chrono::seconds(texts.runLifetime);
    if (texts.reserve) {
        options.reserve = *texts.reserve << 20U;
    }
}

}  // namespace

CommandLine parseCommandLine(int argc, const char* const* argv) {
    CommandLine result;
    CLI::App app("The storage service that backups go to.", "storage-server");
    app.fallthrough();
    app.set_version_flag("--version", std::string("storage-server ") + serverVersion + "\n",
                         "print the version");
    Texts texts;
    addOptions(app, texts, result);
    CLI::App* user = app.add_subcommand("user", "accounts");
    user->require_subcommand(1);
    CLI::App* add =
        user->add_subcommand("add", "add an account; its password is read from standard input");
    add->add_option("NAME", result.user, "the account's name")->required();
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        result.verb = CommandLine::Verb::print;
        result.text = app.help();
        return result;
    } catch (const CLI::CallForVersion& version) {
        result.verb = CommandLine::Verb::print;
        result.text = version.what();
        return result;
    } catch (const CLI::ParseError& error) {
        throw std::runtime_error(error.what());
    }
    readTexts(texts, result.options);
    if (add->parsed()) {
        result.verb = CommandLine::Verb::addUser;
    }
    return result;
}

}  // namespace dorvo
