#include "transfer_queue.h"

#include <algorithm>
#include <cctype>

namespace nv::net {

std::string serverOf(const std::string& url) {
    const std::size_t authority = std::min(url.size(), url.find("://") + 3);
    std::string server = url.substr(0, url.find_first_of("/?#", authority));
    std::transform(server.begin(), server.end(), server.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    const std::size_t colon = server.find_last_of(":]");
    const bool hasPort = colon >= authority && colon != std::string::npos && server[colon] == ':';
    if (hasPort && colon + 1 == server.size()) server.pop_back();
    if (!hasPort || colon == server.size()) {
        server += server.compare(0, 6, "https:") == 0 ? ":443" : ":80";
    }
    return server;
}

void TransferQueue::add(const std::string& server, Id id) {
    servers_[server].waiting.insert(id);
}

void TransferQueue::remove(const std::string& server, Id id) {
    const auto found = servers_.find(server);
    if (found == servers_.end()) return;
    found->second.waiting.erase(id);
    found->second.running.erase(id);
    if (found->second.waiting.empty() && found->second.running.empty()) servers_.erase(found);
}

std::optional<TransferQueue::Id> TransferQueue::takeNext(int transfersPerServer) {
    const auto slots = static_cast<std::size_t>(std::max(1, transfersPerServer));
    for (auto& [name, server] : servers_) {
        if (server.waiting.empty() || server.running.size() >= slots) continue;
        const Id id = *server.waiting.begin();
        server.waiting.erase(server.waiting.begin());
        server.running.insert(id);
        return id;
    }
    return std::nullopt;
}

}  // namespace nv::net
