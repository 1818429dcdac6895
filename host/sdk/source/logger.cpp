#include <nv/logger.h>

#include <log4cplus/configurator.h>
#include <atomic>
#include <mutex>

#include <nvhost/environment.h>

namespace nv {

namespace {

std::atomic<bool>& done() {
    static std::atomic<bool> value{false};
    return value;
}

}  // namespace

bool Logger::hasBeenInitialized() {
    return done().load(std::memory_order_acquire);
}

void Logger::initialize() {
    static std::mutex once;
    const std::lock_guard lock(once);
    if (hasBeenInitialized()) return;
    if (hosting::environment().initializeLogging) {
        hosting::environment().initializeLogging();
    } else {
        log4cplus::BasicConfigurator::doConfigure(log4cplus::Logger::getDefaultHierarchy(), true);
    }
    done().store(true, std::memory_order_release);
}

}  // namespace nv
