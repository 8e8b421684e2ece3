#include "generations.h"

#include <exception>
#include <functional>
#include <string>

#include "common/service_log.h"
#include "common/stop_wait.h"
#include "packages/package_marker.h"

namespace dorvo {

Generations::Generations(SqliteCatalog& catalog, const FileBlockStore& blocks,
                         std::chrono::milliseconds pace)
    : catalog_(catalog), blocks_(blocks), pace_(pace) {
    follow();
    thread_ = std::jthread([this](const std::stop_token& stop) { work(stop); });
}

void Generations::follow() {
    follow([] {});
}

void Generations::follow(const std::function<void()>& before) {
    const std::lock_guard lock(mutex_);
    try {
        before();
        const SqliteCatalog::Service service = catalog_.service();
        if (service.generation > written_) {
            updateMarker(blocks_.folder(), {service.identity, service.generation});
            written_ = service.generation;
        }
        complained_ = false;
    } catch (const std::exception& error) {
        if (!complained_) {
            logEvent(std::string("the packages' marker stays as it was: ") + error.what());
        }
        complained_ = true;
    }
}

void Generations::stop() {
    thread_ = std::jthread();
}

void Generations::work(const std::stop_token& stop) {
    while (!stopsWithin(stop, pace_)) {
        follow([this] { catalog_.nextGeneration(); });
    }
}

}  // namespace dorvo
