#include <pthread.h>
#include <sys/stat.h>

#include <csignal>
#include <exception>
#include <iostream>
#include <string>
#include <system_error>

#include "command_line.h"
#include "common/service_log.h"
#include "storage_server.h"

namespace {

constexpr int failed = 1;
constexpr int wrongUsage = 2;

int complain(const std::string& why, int code) {
    std::cerr << "storage-server: " << why << "\n";
    return code;
}

int addUser(const dorvo::CommandLine& command) {
    std::string password;
    std::getline(std::cin, password);
    if (password.ends_with('\r')) {
        password.pop_back();
    }
    dorvo::addUser(command.options.data, command.user, password);
    std::cout << "user " << command.user << " added\n";
    return 0;
}

int serve(const dorvo::CommandLine& command) {
    // Blocked before any thread starts, so that only the wait below takes them.
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
        sigaddset(&signals, number);
    }
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN));

    const dorvo::RequestLog log(command.logFile);
    dorvo::StorageServer server(command.options,
                                [&log](const std::string& line) { log.write(line); });
    std::cout << "listening on " << server.endpoint() << std::endl;
    int signal = SIGHUP;
    while (signal == SIGHUP) {
        sigwait(&signals, &signal);
        if (signal == SIGHUP) {
            log.reopen();
        }
    }
    server.stop();
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    // What the service keeps is its owner's alone.
    ::umask(077);
    dorvo::CommandLine command;
    try {
        command = dorvo::parseCommandLine(argc, argv);
    } catch (const std::exception& error) {
        return complain(error.what(), wrongUsage);
    }
    try {
        switch (command.verb) {
            case dorvo::CommandLine::Verb::print: std::cout << command.text; return 0;
            case dorvo::CommandLine::Verb::addUser: return addUser(command);
            case dorvo::CommandLine::Verb::serve: return serve(command);
        }
    } catch (const std::system_error& error) {
        // As it is, this says nothing of threads.
        const bool refused = error.code() == std::errc::resource_unavailable_try_again;
        return complain(refused ? "the system refuses another thread: its limit of processes, or of"
                                  " memory, is reached"
                                : error.what(),
                        failed);
    } catch (const std::exception& error) {
        return complain(error.what(), failed);
    }
    return 0;
}
