// A cluster: one shard a collection, a copy on every node, so that each node answers by itself.
#include "depot/publish/cloud_site.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>

namespace depot {
namespace {

using Json = nlohmann::json;

/// A member, null where there is none or `object` is none.
Json member(const Json& object, const std::string& name) {
    if (!object.is_object()) return {};
    const auto found = object.find(name);
    return found == object.end() ? Json() : *found;
}

std::string text(const Json& object, const std::string& name) {
    const Json value = member(object, name);
    return value.is_string() ? value.get<std::string>() : std::string();
}

/// The URLs of a collection's copies; fails where one is not active on a live node, or a live node
/// has none.
Result<std::vector<std::string>> activeCopies(const Json& cluster, const std::string& collection) {
    const std::string context = "collection " + collection;
    const Json state = member(member(cluster, "collections"), collection);
    if (!state.is_object()) return failure(context + ": is not there");
    std::set<std::string> live;
    for (const Json& node : member(cluster, "live_nodes")) {
        if (node.is_string()) live.insert(node.get<std::string>());
    }
    std::set<std::string> empty = live;
    std::vector<std::string> copies;
    const Json shards = member(state, "shards");
    for (const auto& [shardName, shard] : shards.items()) {
        const Json replicas = member(shard, "replicas");
        for (const auto& [replicaName, replica] : replicas.items()) {
            const std::string node = text(replica, "node_name");
            const std::string copy = context + ": the copy on node ";
            if (live.count(node) == 0)
                return failure(copy + node + " is out of reach (node not live)");
            if (text(replica, "state") != "active")
                return failure(copy + node + " is " + text(replica, "state") +
                               " instead of active");
            copies.push_back(text(replica, "base_url"));
            copies.back().append("/").append(text(replica, "core"));
            empty.erase(node);
        }
    }
    if (copies.empty()) return failure(context + ": has no copy");
    if (!empty.empty()) return failure(context + ": has no copy on node " + *empty.begin());
    return copies;
}

}  // namespace

Result<Json> CloudSite::cluster() {
    const auto status = client_.get("/admin/collections?action=CLUSTERSTATUS", limits_.call);
    if (!status) return tl::make_unexpected(status.error());
    Json cluster = member(*status, "cluster");
    if (!cluster.is_object())
        return failure(client_.base() + ": its CLUSTERSTATUS names no cluster");
    return cluster;
}

Result<void> CloudSite::requireHealthy() {
    const auto state = cluster();
    if (!state) return tl::make_unexpected(state.error());
    for (const Core core : {Core::kDrivers, Core::kAgents}) {
        const std::string collection = text(member(*state, "aliases"), coreName(core));
        if (collection.empty() && member(member(*state, "collections"), coreName(core)).is_object())
            return failure(client_.base() + ": \"" + coreName(core) +
                           "\" is a collection there; it must be an alias, so that it can be "
                           "switched");
        if (collection.empty()) continue;
        if (const auto copies = activeCopies(*state, collection); !copies)
            return failure(client_.base(), copies.error());
    }
    return {};
}

Result<std::optional<std::string>> CloudSite::current(Core core) {
    const auto aliases = client_.get("/admin/collections?action=LISTALIASES", limits_.call);
    if (!aliases) return tl::make_unexpected(aliases.error());
    const std::string collection = text(member(*aliases, "aliases"), coreName(core));
    if (collection.empty()) return std::nullopt;
    return collection;
}

Result<std::vector<std::string>> CloudSite::collections() {
    const auto list = client_.get("/admin/collections?action=LIST", limits_.call);
    if (!list) return tl::make_unexpected(list.error());
    std::vector<std::string> names;
    for (const Json& name : member(*list, "collections")) {
        if (name.is_string()) names.push_back(name.get<std::string>());
    }
    std::sort(names.begin(), names.end());
    return names;
}

Result<void> CloudSite::create(const std::string& collection) {
    const auto state = cluster();
    if (!state) return tl::make_unexpected(state.error());
    const std::size_t nodes = member(*state, "live_nodes").size();
    return carryOut("/admin/collections?action=CREATE&name=" + collection +
                        "&numShards=1&replicationFactor=" + std::to_string(nodes) +
                        "&collection.configName=" + configset_ + "&waitForFinalState=true",
                    [&]() -> Result<void> {
                        const auto copies = copiesOf(collection);
                        if (!copies) return tl::make_unexpected(copies.error());
                        return {};
                    });
}

Result<void> CloudSite::aliasIs(Core core, const std::optional<std::string>& collection) {
    const auto state = cluster();
    if (!state) return tl::make_unexpected(state.error());
    std::set<std::string> nodes{client_.base()};
    const Json known = member(member(*state, "collections"), collection.value_or(""));
    const Json shards = member(known, "shards");
    for (const Json& shard : shards) {
        const Json replicas = member(shard, "replicas");
        for (const Json& replica : replicas) nodes.insert(text(replica, "base_url"));
    }
    for (const std::string& node : nodes) {
        // A node that is asked for its aliases fetches them anew from ZooKeeper first.
        const auto aliases =
            client_.getAt(node, "/admin/collections?action=LISTALIASES", limits_.call);
        if (!aliases) return tl::make_unexpected(aliases.error());
        if (text(member(*aliases, "aliases"), coreName(core)) != collection.value_or(""))
            return failure(node + ": its alias " + coreName(core) + " did not change to " +
                           collection.value_or("nothing"));
    }
    return {};
}

Result<void> CloudSite::switchTo(Core core, const std::optional<std::string>& collection) {
    const std::string call = collection
                                 ? "/admin/collections?action=CREATEALIAS&name=" + coreName(core) +
                                       "&collections=" + *collection
                                 : "/admin/collections?action=DELETEALIAS&name=" + coreName(core);
    return carryOut(call, [&] { return aliasIs(core, collection); });
}

Result<void> CloudSite::drop(const std::string& collection) {
    return carryOut("/admin/collections?action=DELETE&name=" + collection, [&]() -> Result<void> {
        const auto names = collections();
        if (!names) return tl::make_unexpected(names.error());
        if (std::binary_search(names->begin(), names->end(), collection))
            return failure("collection " + collection + ": is still there");
        return {};
    });
}

Result<std::string> CloudSite::pathOf(const std::string& collection) {
    return "/" + collection;
}

Result<std::vector<std::string>> CloudSite::copiesOf(const std::string& collection) {
    const auto state = cluster();
    if (!state) return tl::make_unexpected(state.error());
    auto copies = activeCopies(*state, collection);
    if (!copies) return failure(client_.base(), copies.error());
    return copies;
}

}  // namespace depot
