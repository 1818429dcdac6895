#include "depot/publish/single_site.h"

#include <nlohmann/json.hpp>

namespace depot {
namespace {

using Json = nlohmann::json;

std::string lastPart(std::string folder) {
    while (folder.ends_with('/') || folder.ends_with('\\')) folder.pop_back();
    return folder.substr(folder.find_last_of("/\\") + 1);
}

}  // namespace

Result<std::map<std::string, std::string>> SingleSite::cores() {
    const auto answer = client_.get("/admin/cores?action=STATUS&indexInfo=false", limits_.call);
    if (!answer) return tl::make_unexpected(answer.error());
    const Json status = answer->value("status", Json());
    if (!status.is_object()) return failure(client_.base() + ": its core STATUS names no cores");
    std::map<std::string, std::string> cores;
    for (const auto& [name, core] : status.items()) {
        const Json folder = core.is_object() ? core.value("instanceDir", Json()) : Json();
        if (folder.is_string()) cores[lastPart(folder.get<std::string>())] = name;
    }
    return cores;
}

Result<std::string> SingleSite::coreOf(const std::string& collection) {
    const auto all = cores();
    if (!all) return tl::make_unexpected(all.error());
    const auto found = all->find(collection);
    if (found == all->end()) return failure(client_.base() + ": has no core for " + collection);
    return found->second;
}

Result<void> SingleSite::requireHealthy() {
    for (const Core core : {Core::kDrivers, Core::kAgents}) {
        const auto collection = current(core);
        if (!collection) return tl::make_unexpected(collection.error());
        if (!*collection)
            return failure(client_.base() + ": has no core named " + coreName(core) +
                           "; make one with the catalogue's configset first");
    }
    return {};
}

Result<std::optional<std::string>> SingleSite::current(Core core) {
    const auto all = cores();
    if (!all) return tl::make_unexpected(all.error());
    for (const auto& [collection, name] : *all) {
        if (name == coreName(core)) return collection;
    }
    return std::nullopt;
}

Result<std::vector<std::string>> SingleSite::collections() {
    const auto all = cores();
    if (!all) return tl::make_unexpected(all.error());
    std::vector<std::string> names;
    for (const auto& [collection, name] : *all) names.push_back(collection);
    return names;
}

Result<void> SingleSite::create(const std::string& collection) {
    return carryOut("/admin/cores?action=CREATE&name=" + collection + "&configSet=" + configset_,
                    [&]() -> Result<void> {
                        const auto core = coreOf(collection);
                        if (!core) return tl::make_unexpected(core.error());
                        return {};
                    });
}

Result<void> SingleSite::switchTo(Core core, const std::optional<std::string>& collection) {
    if (!collection) return failure(client_.base() + ": a node's core cannot be taken away");
    const auto other = coreOf(*collection);
    if (!other) return tl::make_unexpected(other.error());
    if (*other == coreName(core)) return {};
    // Once, whatever the answer: a second exchange would undo the first.
    return carryOut("/admin/cores?action=SWAP&core=" + coreName(core) + "&other=" + *other,
                    [&]() -> Result<void> {
                        const auto now = current(core);
                        if (!now) return tl::make_unexpected(now.error());
                        if (*now != *collection)
                            return failure(client_.base() + ": its core " + coreName(core) +
                                           " did not change to " + *collection);
                        return {};
                    });
}

Result<void> SingleSite::drop(const std::string& collection) {
    const auto core = coreOf(collection);
    if (!core) return tl::make_unexpected(core.error());
    if (*core == coreName(Core::kDrivers) || *core == coreName(Core::kAgents))
        return failure(client_.base() + ": " + collection + " is in use");
    return carryOut("/admin/cores?action=UNLOAD&core=" + *core + "&deleteInstanceDir=true",
                    [&]() -> Result<void> {
                        const auto all = cores();
                        if (!all) return tl::make_unexpected(all.error());
                        if (all->count(collection) != 0)
                            return failure(client_.base() + ": " + collection + " is still there");
                        return {};
                    });
}

Result<std::string> SingleSite::pathOf(const std::string& collection) {
    const auto core = coreOf(collection);
    if (!core) return tl::make_unexpected(core.error());
    return "/" + *core;
}

Result<std::vector<std::string>> SingleSite::copiesOf(const std::string& collection) {
    const auto core = coreOf(collection);
    if (!core) return tl::make_unexpected(core.error());
    return std::vector<std::string>{client_.base() + "/" + *core};
}

}  // namespace depot
