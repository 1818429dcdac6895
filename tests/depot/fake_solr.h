#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

namespace httplib {
class Server;
struct Request;
struct Response;
}  // namespace httplib

namespace depot::testing {

/// As much of Solr as a publisher sees, over real HTTP on 127.0.0.1: a cluster of one node, or a
/// node that stands alone, with empty collections behind "drivers" and "agents".
class FakeSolr {
  public:
    enum class Kind { kCluster, kSingle };
    explicit FakeSolr(Kind kind);
    ~FakeSolr();

    std::string url() const;

    /// What goes wrong with the calls whose path and query hold `part`.
    enum class Fault {
        kError,      ///< answered with 500 and a reason; without effect
        kNoEffect,   ///< answered as if it had been done
        kLateError,  ///< done, and answered with 500
        kLoseOne,    ///< an update that loses its first document
        kOtherType,  ///< an update that turns the versions into texts
        kHtml,       ///< answered with a page
        kNested,     ///< answered with JSON that is nested 100,000 deep
    };
    void breakCalls(const std::string& part, Fault fault);
    void repair();

    /// Marks the copies of everything that is served as being down.
    void setActive(bool active);

    /// The collection behind a public name.
    std::string served(const std::string& core);
    std::vector<std::string> collections();
    /// The versions of the documents behind a public name, by file name.
    std::map<std::string, int> versions(const std::string& core);
    /// How many calls changed something.
    int changes();

  private:
    using Json = nlohmann::json;
    struct Collection {
        std::vector<Json> added;
        std::vector<Json> committed;
    };

    void handle(const httplib::Request& request, httplib::Response& response);
    Json answer(const httplib::Request& request);
    Json collectionCall(const httplib::Request& request);
    Json coreCall(const httplib::Request& request);
    Json clusterStatus() const;
    Json select(const std::string& name, const httplib::Request& request);
    Json update(const std::string& name, const httplib::Request& request);
    Collection& find(const std::string& name);

    const Kind kind_;
    std::unique_ptr<httplib::Server> server_;
    std::thread thread_;
    int port_ = 0;

    std::mutex mutex_;  ///< guards what follows
    std::map<std::string, Collection> collections_;
    std::map<std::string, std::string> public_;  ///< public name -> collection
    std::map<std::string, std::string> names_;  ///< collection -> its core's name, single node only
    std::map<std::string, Fault> faults_;
    bool active_ = true;
    int changes_ = 0;
};

}  // namespace depot::testing
