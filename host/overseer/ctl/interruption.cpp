#include "ctl/interruption.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>
#include <atomic>
#include <csignal>
#include <cstdint>

namespace overseer::ctl {
namespace {

// A signal handler has nothing else to find its object by.
std::atomic<int> signalDescriptor{-1};

void raiseFlag(int descriptor) {
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = write(descriptor, &one, sizeof one);
}

void onSignal(int) {
    if (const int descriptor = signalDescriptor; descriptor >= 0) {
        raiseFlag(descriptor);
    }
}

void handleSignals(void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

}  // namespace

Interruption::Interruption() : descriptor_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    signalDescriptor = descriptor_;
    handleSignals(onSignal);
}

Interruption::~Interruption() {
    handleSignals(SIG_DFL);
    signalDescriptor = -1;
    close(descriptor_);
}

bool Interruption::requested() const {
    return waitFor(std::chrono::milliseconds(0));
}

void Interruption::request() {
    raiseFlag(descriptor_);
}

bool Interruption::waitFor(std::chrono::milliseconds delay) const {
    pollfd flag{descriptor_, POLLIN, 0};
    return poll(&flag, 1, static_cast<int>(delay.count())) != 0;
}

}  // namespace overseer::ctl
