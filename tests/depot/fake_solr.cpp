#include "fake_solr.h"

#include <httplib.h>

#include <optional>
#include <stdexcept>

#include "depot/publish/release.h"
#include "depot/query_evaluator.h"
#include "depot/query_parser.h"
#include "depot_test_kit.h"

namespace depot::testing {
namespace {

using Json = nlohmann::json;

struct Refusal : std::runtime_error {
    using std::runtime_error::runtime_error;
};

Json errorAnswer(const std::string& reason) {
    return {{"responseHeader", {{"status", 500}}}, {"error", {{"msg", reason}, {"code", 500}}}};
}

}  // namespace

FakeSolr::FakeSolr(Kind kind) : kind_(kind), server_(std::make_unique<httplib::Server>()) {
    for (const std::string core : {"drivers", "agents"}) {
        const std::string collection = kind == Kind::kCluster ? core + "_empty" : core;
        collections_[collection];
        public_[core] = collection;
        names_[collection] = core;
    }
    const auto handler = [this](const httplib::Request& request, httplib::Response& response) {
        handle(request, response);
    };
    server_->set_tcp_nodelay(true);
    server_->Get(".*", handler);
    server_->Post(".*", handler);
    port_ = server_->bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_->listen_after_bind(); });
}

FakeSolr::~FakeSolr() {
    // A server that is told to stop before it runs would run for ever.
    while (!server_->is_running()) std::this_thread::yield();
    server_->stop();
    thread_.join();
}

std::string FakeSolr::url() const {
    return "http://127.0.0.1:" + std::to_string(port_) + "/solr";
}

void FakeSolr::breakCalls(const std::string& part, Fault fault) {
    const std::lock_guard lock(mutex_);
    faults_[part] = fault;
}

void FakeSolr::repair() {
    const std::lock_guard lock(mutex_);
    faults_.clear();
}

void FakeSolr::setActive(bool active) {
    const std::lock_guard lock(mutex_);
    active_ = active;
}

std::string FakeSolr::served(const std::string& core) {
    const std::lock_guard lock(mutex_);
    return public_.at(core);
}

std::vector<std::string> FakeSolr::collections() {
    const std::lock_guard lock(mutex_);
    std::vector<std::string> names;
    for (const auto& [name, collection] : collections_) names.push_back(name);
    return names;
}

std::map<std::string, int> FakeSolr::versions(const std::string& core) {
    const std::lock_guard lock(mutex_);
    std::map<std::string, int> versions;
    for (const Json& document : collections_.at(public_.at(core)).committed)
        versions[document.at("filename")] = document.at("version").get<int>();
    return versions;
}

int FakeSolr::changes() {
    const std::lock_guard lock(mutex_);
    return changes_;
}

void FakeSolr::handle(const httplib::Request& request, httplib::Response& response) {
    const std::lock_guard lock(mutex_);
    std::optional<Fault> fault;
    for (const auto& [part, each] : faults_) {
        if (request.target.find(part) != std::string::npos) fault = each;
    }
    const auto send = [&response](int status, const Json& body) {
        response.status = status;
        response.set_content(body.dump(), "application/json");
    };
    if (fault == Fault::kHtml) return response.set_content("<html>hello</html>", "text/html");
    if (fault == Fault::kNested)
        return response.set_content(std::string(100'000, '['), "application/json");
    if (fault == Fault::kError) return send(500, errorAnswer("No space left on device"));
    if (fault == Fault::kNoEffect) return send(200, {{"responseHeader", {{"status", 0}}}});
    try {
        Json done = answer(request);
        if (fault == Fault::kLateError) return send(500, errorAnswer("timed out"));
        if (fault == Fault::kLoseOne || fault == Fault::kOtherType) {
            for (auto& [name, collection] : collections_) {
                if (collection.added.empty()) continue;
                if (fault == Fault::kLoseOne) collection.added.erase(collection.added.begin());
                for (Json& document : collection.added)
                    if (fault == Fault::kOtherType)
                        document["version"] = Json::array({document["version"]});
            }
        }
        send(200, done);
    } catch (const std::exception& error) {
        send(400, errorAnswer(error.what()));
    }
}

Json FakeSolr::answer(const httplib::Request& request) {
    const std::string path = request.path;
    if (path == "/solr/admin/info/system")
        return {{"mode", kind_ == Kind::kCluster ? "solrcloud" : "std"}};
    if (path == "/solr/admin/collections" && kind_ == Kind::kCluster)
        return collectionCall(request);
    if (path == "/solr/admin/cores") return coreCall(request);
    const std::string name = path.substr(6, path.rfind('/') - 6);
    if (path.ends_with("/select")) return select(name, request);
    if (path.ends_with("/update")) return update(name, request);
    throw Refusal("no such path");
}

FakeSolr::Collection& FakeSolr::find(const std::string& name) {
    if (kind_ == Kind::kSingle) {
        for (const auto& [collection, core] : names_) {
            if (core == name) return collections_.at(collection);
        }
    }
    const auto found = public_.find(name);
    return collections_.at(found == public_.end() ? name : found->second);
}

Json FakeSolr::clusterStatus() const {
    Json status{{"live_nodes", {"node"}}, {"collections", Json::object()}, {"aliases", public_}};
    for (const auto& [name, collection] : collections_) {
        status["collections"][name]["shards"]["shard1"]["replicas"]["replica"] = {
            {"node_name", "node"},
            {"state", active_ ? "active" : "down"},
            {"base_url", url()},
            {"core", name}};
    }
    return status;
}

Json FakeSolr::collectionCall(const httplib::Request& request) {
    const std::string action = request.get_param_value("action");
    const std::string name = request.get_param_value("name");
    if (action == "CLUSTERSTATUS") return {{"cluster", clusterStatus()}};
    if (action == "LISTALIASES") return {{"aliases", public_}};
    if (action == "LIST") {
        Json names = Json::array();
        for (const auto& [each, collection] : collections_) names.push_back(each);
        return {{"collections", names}};
    }
    ++changes_;
    if (action == "CREATE") collections_[name];
    if (action == "CREATEALIAS") public_[name] = request.get_param_value("collections");
    if (action == "DELETEALIAS") public_.erase(name);
    if (action == "DELETE") collections_.erase(name);
    return {{"responseHeader", {{"status", 0}}}};
}

Json FakeSolr::coreCall(const httplib::Request& request) {
    const std::string action = request.get_param_value("action");
    const std::string core = request.get_param_value("core");
    if (action == "STATUS") {
        Json status = Json::object();
        for (const auto& [collection, name] : names_)
            status[name] = {{"name", name}, {"instanceDir", "/var/solr/" + collection}};
        return {{"status", status}};
    }
    ++changes_;
    if (action == "CREATE") {
        const std::string name = request.get_param_value("name");
        collections_[name];
        names_[name] = name;
    }
    for (auto& [collection, name] : names_) {
        const std::string other = request.get_param_value("other");
        if (action == "SWAP" && (name == core || name == other)) {
            name = name == core ? other : core;
            if (name == "drivers" || name == "agents") public_[name] = collection;
        }
    }
    if (action == "UNLOAD") {
        for (auto each = names_.begin(); each != names_.end(); ++each) {
            if (each->second != core) continue;
            collections_.erase(each->first);
            names_.erase(each);
            break;
        }
    }
    return {{"responseHeader", {{"status", 0}}}};
}

Json FakeSolr::select(const std::string& name, const httplib::Request& request) {
    Json found = Json::array();
    for (const Json& each : find(name).committed) {
        const Snapshot snapshot = snapshotOf({document(each.at("filename"))});
        const auto query = parseQuery(request.has_param("fq") ? request.get_param_value("fq")
                                                              : std::string("*:*"));
        if (query && evaluate(*query, snapshot).at(0)) found.push_back(each);
    }
    const std::size_t count = found.size();
    if (request.get_param_value("rows") == "0") found = Json::array();
    return {{"response", {{"numFound", count}, {"docs", found}}}};
}

Json FakeSolr::update(const std::string& name, const httplib::Request& request) {
    ++changes_;
    Collection& collection = find(name);
    for (const Json& document : Json::parse(request.body)) collection.added.push_back(document);
    if (request.get_param_value("commit") == "true") collection.committed = collection.added;
    return {{"responseHeader", {{"status", 0}}}};
}

}  // namespace depot::testing
