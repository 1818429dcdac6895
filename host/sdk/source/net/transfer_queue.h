#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>

namespace nv::net {

/// Scheme, host and port of an http or https URL in one form, so that equal servers compare equal.
std::string serverOf(const std::string& url);

/// Who may transfer and who waits: so many at once per server, the rest in order of arrival. Holds
/// numbers only; what waits here costs neither a connection nor a timer.
class TransferQueue {
  public:
    using Id = std::uint64_t;

    /// Ids ascend in order of arrival.
    void add(const std::string& server, Id id);
    /// Takes out a waiting transfer, or gives back the slot of a running one.
    void remove(const std::string& server, Id id);
    /// The next transfer whose server has a slot free; it holds the slot from now on.
    std::optional<Id> takeNext(int transfersPerServer);

  private:
    struct Server {
        std::set<Id> waiting;
        std::set<Id> running;
    };
    std::map<std::string, Server> servers_;
};

}  // namespace nv::net
