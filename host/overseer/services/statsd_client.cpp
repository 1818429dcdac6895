#include "services/statsd_client.h"

#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

namespace overseer {

/// A socket and where it sends to.
struct StatsdClient::Destination {
    int descriptor = -1;
    sockaddr_storage address{};
    socklen_t addressLength = 0;

    Destination() = default;
    ~Destination() {
        if (descriptor >= 0) close(descriptor);
    }
    Destination(const Destination&) = delete;
    Destination& operator=(const Destination&) = delete;
};

/// What the resolving thread shares with the client. A name server may take its time, and a stop
/// waits for nobody: the thread is let go, and finds out here that its answer is not wanted.
struct StatsdClient::Resolution {
    std::mutex mutex;
    Post post;                       // guarded by mutex; empty once the client is gone
    StatsdClient* client = nullptr;  // I/O thread only; null once the client is gone
    bool underWay = false;           // I/O thread only
    std::chrono::steady_clock::time_point nextAttempt;  // I/O thread only
};

namespace {

/// The first of the host's addresses that a socket can be made for; null when there is none.
template <typename Destination>
std::shared_ptr<Destination> lookUp(const std::string& host, std::uint16_t port, int flags) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_DGRAM;
    hints.ai_flags = flags;
    addrinfo* found = nullptr;
    if (getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found) != 0) return {};
    const std::unique_ptr<addrinfo, void (*)(addrinfo*)> owner(found, freeaddrinfo);
    for (const addrinfo* entry = found; entry != nullptr; entry = entry->ai_next) {
        auto destination = std::make_shared<Destination>();
        destination->descriptor =
            socket(entry->ai_family, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        if (destination->descriptor < 0 || entry->ai_addrlen > sizeof(destination->address))
            continue;
        const auto* bytes = reinterpret_cast<const char*>(entry->ai_addr);
        std::copy(bytes, bytes + entry->ai_addrlen, reinterpret_cast<char*>(&destination->address));
        destination->addressLength = entry->ai_addrlen;
        return destination;
    }
    return {};
}

std::optional<std::uint64_t> asMilliseconds(const std::string& text) {
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

}  // namespace

StatsdClient::StatsdClient(StatsdSettings settings, std::shared_ptr<nv::hosting::Clock> clock,
                           Post post)
    : settings_(std::move(settings)),
      clock_(std::move(clock)),
      resolution_(std::make_shared<Resolution>()) {
    resolution_->post = std::move(post);
    resolution_->client = this;
    if (settings_.host.empty()) return;
    // An address needs no name server, and so no thread and no second attempt.
    destination_ = lookUp<Destination>(settings_.host, settings_.port, AI_NUMERICHOST);
    if (destination_) {
        resolution_->nextAttempt = std::chrono::steady_clock::time_point::max();
        return;
    }
    resolution_->nextAttempt = clock_->steadyTime();
    resolveWhenDue();
}

StatsdClient::~StatsdClient() {
    resolution_->client = nullptr;
    const std::lock_guard lock(resolution_->mutex);
    resolution_->post = nullptr;
}

StatsdResult StatsdClient::Count(const std::string& nameSpace, const std::string& name,
                                 const std::string& tag) {
    if (!settings_.durationNamespaces.contains(nameSpace)) {
        tell({nameSpace, name, tag, 1, false});
        return send(statsd_format::taggedCount(nameSpace, name, tag));
    }
    const std::optional<std::uint64_t> milliseconds = asMilliseconds(tag);
    if (!milliseconds) return {};
    tell({nameSpace, name, {}, static_cast<std::int64_t>(*milliseconds), true});
    return send(statsd_format::timing(nameSpace, name, *milliseconds));
}

StatsdResult StatsdClient::Count(const std::string& nameSpace, const std::string& name, int value,
                                 int sampleRate) {
    tell({nameSpace, name, {}, value, false});
    return send(statsd_format::plainCount(nameSpace, name, value, sampleRate));
}

void StatsdClient::observe(Observer observer) {
    observers_.push_back(std::move(observer));
}

void StatsdClient::tell(const Metric& metric) const {
    for (const Observer& observer : observers_) observer(metric);
}

StatsdResult StatsdClient::send(std::string datagram) {
    if (settings_.host.empty()) return {};
    resolveWhenDue();
    if (!destination_) {
        if (waiting_.size() < kQueueLimit) waiting_.push_back(std::move(datagram));
        return {};
    }
    const ssize_t sent = sendto(
        destination_->descriptor, datagram.data(), datagram.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
        reinterpret_cast<const sockaddr*>(&destination_->address), destination_->addressLength);
    return {sent == static_cast<ssize_t>(datagram.size())};
}

void StatsdClient::resolveWhenDue() {
    if (resolution_->underWay || clock_->steadyTime() < resolution_->nextAttempt) return;
    resolution_->underWay = true;
    auto resolve = [shared = resolution_, host = settings_.host, port = settings_.port] {
        std::shared_ptr<const Destination> found = lookUp<Destination>(host, port, 0);
        const std::lock_guard lock(shared->mutex);
        if (!shared->post) return;
        shared->post([shared, found = std::move(found)] {
            if (shared->client != nullptr) shared->client->resolved(found);
        });
    };
    try {
        std::thread(std::move(resolve)).detach();
    } catch (const std::system_error&) {
        resolved(nullptr);  // no thread to be had now
    }
}

void StatsdClient::resolved(std::shared_ptr<const Destination> destination) {
    resolution_->underWay = false;
    resolution_->nextAttempt =
        clock_->steadyTime() + (destination ? kResolveEvery : std::chrono::seconds(kRetryAfter));
    if (!destination) return;
    destination_ = std::move(destination);
    for (std::string& datagram : std::exchange(waiting_, {})) send(std::move(datagram));
}

}  // namespace overseer
