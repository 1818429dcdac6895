#pragma once

#include <nv/statsd.h>
#include <nvhost/clock.h>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace overseer {

/// Where metrics go and how.
struct StatsdSettings {
    std::string host;  ///< name or address; empty: nothing is sent, observers still hear
    std::uint16_t port = 8125;
    /// Namespaces whose tagged counts carry milliseconds in the place of the tag.
    std::set<std::string> durationNamespaces = {"overseer.agent.driverupdate.updatetime",
                                                "overseer.agent.driverupdate.auto_add_agent_time"};
};

/// One metric as it was handed in, before anything is made fit for the wire.
struct Metric {
    std::string nameSpace;
    std::string name;
    std::string tag;         ///< empty for none and for durations
    std::int64_t value = 1;  ///< milliseconds for durations
    bool duration = false;
};

/// The wire forms. Names keep `[A-Za-z0-9_.]`, tag texts `[A-Za-z0-9_.-]`; each other byte becomes
/// `_`, and each text is cut at kLongestText.
namespace statsd_format {

inline constexpr std::size_t kLongestText = 200;
/// NAMESPACE.NAME:1|c|#subject:TEXT, without the tag when it is empty
std::string taggedCount(const std::string& nameSpace, const std::string& name,
                        const std::string& tag);
/// NAMESPACE.NAME:VALUE|c, with |@RATE when one in `sampleRate` (from 2) is sent
std::string plainCount(const std::string& nameSpace, const std::string& name, int value,
                       int sampleRate);
/// NAMESPACE:MILLISECONDS|ms|#file:NAME
std::string timing(const std::string& nameSpace, const std::string& name,
                   std::uint64_t milliseconds);

}  // namespace statsd_format

/// Metrics as statsd datagrams over UDP. Sending never blocks, and its failures are forgotten. A
/// host name is resolved on a thread of its own, again after a failure (a minute later at the
/// soonest) and every quarter of an hour; what is counted before the first answer waits, up to
/// kQueueLimit datagrams. I/O thread only.
class StatsdClient : public IStatsdClient {
  public:
    static constexpr std::size_t kQueueLimit = 64;
    static constexpr std::chrono::seconds kRetryAfter{60};
    static constexpr std::chrono::minutes kResolveEvery{15};

    using Observer = std::function<void(const Metric&)>;
    /// Runs a function on the I/O thread; may be called on any thread, until the client is
    /// destroyed and no longer.
    using Post = std::function<void(std::function<void()>)>;

    StatsdClient(StatsdSettings settings, std::shared_ptr<nv::hosting::Clock> clock, Post post);
    ~StatsdClient() override;
    StatsdClient(const StatsdClient&) = delete;
    StatsdClient& operator=(const StatsdClient&) = delete;

    StatsdResult Count(const std::string& nameSpace, const std::string& name,
                       const std::string& tag) override;
    StatsdResult Count(const std::string& nameSpace, const std::string& name, int value,
                       int sampleRate) override;
    /// Called for every metric, before it is sent, for as long as the client lives.
    void observe(Observer observer);

  private:
    struct Resolution;
    struct Destination;

    void tell(const Metric& metric) const;
    StatsdResult send(std::string datagram);
    void resolveWhenDue();
    void resolved(std::shared_ptr<const Destination> destination);

    StatsdSettings settings_;
    std::shared_ptr<nv::hosting::Clock> clock_;
    std::vector<Observer> observers_;
    std::shared_ptr<Resolution> resolution_;
    std::shared_ptr<const Destination> destination_;
    std::vector<std::string> waiting_;
};

}  // namespace overseer
