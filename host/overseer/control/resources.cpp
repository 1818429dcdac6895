#include "control/resources.h"

#include <array>
#include <charconv>
#include <exception>
#include <nlohmann/json.hpp>

#include "control/resource_handlers.h"

// The table of resources, and the way from a request to its row. "*" stands for one variable
// segment.
namespace overseer::control {
namespace {

constexpr std::uint64_t kMaximumWaitSeconds = 3600;

using Handler = Answer (*)(const Call&);

struct Resource {
    std::string_view method;
    std::vector<std::string_view> path;
    Handler handler;
};

const std::vector<Resource>& resources() {
    // clang-format off
    static const std::vector<Resource> table{
        {"GET",  {"host"},                           showHost},
        {"GET",  {"status"},                         showStatus},
        {"GET",  {"network"},                        showNetwork},
        {"GET",  {"agents"},                         listAgents},
        {"POST", {"agents", "*", "commands", "*"},   runCommand},
        {"GET",  {"agents", "*", "settings"},        showSettings},
        {"POST", {"agents", "*", "runs"},            startRun},
        {"GET",  {"agents", "*", "runs", "last"},    showLastRun},
        {"GET",  {"variables"},                      listVariables},
        {"GET",  {"history"},                        listHistory},
        {"GET",  {"notifications"},                  listNotifications},
        {"GET",  {"schedule"},                       listSchedule},
        {"POST", {"schedule", "*", "fire"},          fireEvent},
        {"GET",  {"drivers"},                        listDrivers},
        {"GET",  {"drivers", "*"},                   showDriver},
        {"POST", {"drivers", "*", "place"},          placeDriver},
        {"POST", {"drivers", "*", "restore"},        restoreDriver},
    };
    // clang-format on
    return table;
}

/// The variable segments when the path is the resource's.
std::optional<std::vector<std::string>> match(const Resource& resource,
                                              const std::vector<std::string>& path) {
    if (resource.path.size() != path.size()) {
        return std::nullopt;
    }
    std::vector<std::string> arguments;
    for (std::size_t at = 0; at < path.size(); ++at) {
        if (resource.path[at] == "*") {
            arguments.push_back(path[at]);
        } else if (resource.path[at] != path[at]) {
            return std::nullopt;
        }
    }
    return arguments;
}

Response listResources() {
    Json list = Json::array();
    for (const Resource& resource : resources()) {
        std::string path;
        for (const std::string_view segment : resource.path) {
            path += "/" + std::string(segment);
        }
        list.push_back({{"method", resource.method}, {"path", path}});
    }
    return jsonResponse({{"resources", std::move(list)}});
}

Answer route(ControlServices& services, const Request& request) {
    std::string allowed;
    for (const Resource& resource : resources()) {
        auto arguments = match(resource, request.path);
        if (arguments && resource.method == request.method) {
            return resource.handler(Call{services, request, std::move(*arguments)});
        }
        if (arguments) {
            allowed = resource.method;
        }
    }
    if (request.path.empty() && request.method == "GET") {
        return listResources();
    }
    if (allowed.empty()) {
        return refusal(404, "no_such_resource", "there is no such resource; GET / lists them");
    }
    Response response =
        refusal(405, "method_not_allowed", "this resource answers " + allowed + " only");
    response.allow = allowed;
    return response;
}

}  // namespace

Answer answer(ControlServices& services, const Request& request) {
    try {
        return route(services, request);
    } catch (const std::exception& error) {
        return refusal(500, "internal", error.what());
    } catch (...) {
        return refusal(500, "internal", "something that is no exception was thrown");
    }
}

std::optional<Response> lookAt(const Wait& wait, ControlServices& services, bool last) {
    try {
        std::optional<Response> found = wait.ready(services);
        return found || !last ? found : wait.expired(services);
    } catch (const std::exception& error) {
        return refusal(500, "internal", error.what());
    } catch (...) {
        return refusal(500, "internal", "something that is no exception was thrown");
    }
}

Response jsonResponse(const Json& json, unsigned int status) {
    return {status, "application/json", toLine(json) + "\n", {}};
}

Result<std::uint64_t> queryNumber(const Request& request, const std::string& name,
                                  std::uint64_t fallback, std::uint64_t maximum) {
    const auto given = request.query.find(name);
    if (given == request.query.end()) {
        return fallback;
    }
    const std::string& text = given->second;
    std::uint64_t value = 0;
    const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (problem != std::errc() || end != text.data() + text.size() || value > maximum) {
        return failure("\"{}\" must be a whole number from 0 to {}, not \"{}\"", name, maximum,
                       text);
    }
    return value;
}

Result<std::chrono::milliseconds> waitLimit(const Request& request) {
    const auto seconds = queryNumber(request, "timeout", 60, kMaximumWaitSeconds);
    if (!seconds) {
        return tl::unexpected(seconds.error());
    }
    return std::chrono::milliseconds(*seconds * 1000);
}

Response badQuery(const Error& error) {
    return refusal(400, "bad_query", error.message);
}

}  // namespace overseer::control
