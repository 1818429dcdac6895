#include <nvhost/environment.h>

#include <utility>

namespace nv::hosting {

namespace {

// The platform's free functions have no object to ask: this is the one place that they look at.
Environment& installed() {
    static Environment instance;
    return instance;
}

}  // namespace

const Environment& environment() {
    return installed();
}

EnvironmentScope::EnvironmentScope(Environment environment)
    : previous_(std::exchange(installed(), std::move(environment))) {}

EnvironmentScope::~EnvironmentScope() {
    installed() = std::move(previous_);
}

}  // namespace nv::hosting
