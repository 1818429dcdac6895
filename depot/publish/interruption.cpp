#include "depot/publish/interruption.h"

#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace depot {

Interruption::Interruption() {
    sigset_t signals;
    ::sigemptyset(&signals);
    for (const int each : {SIGINT, SIGTERM, SIGHUP}) ::sigaddset(&signals, each);
    signals_ = FileDescriptor(::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
    // Where that fails the signals end the program, as ever.
    if (signals_) ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

bool Interruption::requested() {
    again();
    return arrived_;
}

bool Interruption::again() {
    bool more = false;
    signalfd_siginfo signal{};
    while (signals_ && ::read(signals_.get(), &signal, sizeof signal) == sizeof signal) more = true;
    arrived_ = arrived_ || more;
    return more;
}

}  // namespace depot
