#pragma once

#include <optional>
#include <string>
#include <vector>

namespace depot {

/// A proxy: the kind of device that a driver presents to the controller.
struct DemoProxy {
    std::string kind;
    std::string name;
};

/// A capability that a driver declares.
struct DemoCapability {
    std::string name;
    std::string value;
};

/// What an update is expected to make of a driver.
enum class DemoOutcome { kUpdated, kCurrent, kHeldBack, kNotOffered };

/// The word for it, as `overseerctl update` and `expected.json` say it.
std::string outcomeText(DemoOutcome outcome);

/// One invented driver or agent in its two versions.
struct DemoDriver {
    std::string filename;
    std::string name;
    std::string model;
    std::string manufacturer;
    std::optional<int> olderVersion;  ///< none: not installed
    std::optional<int> newerVersion;  ///< none: not in the catalogue
    DemoOutcome outcome = DemoOutcome::kUpdated;
    DemoOutcome forcedOutcome = DemoOutcome::kNotOffered;
    std::vector<DemoProxy> proxies;
    std::vector<DemoCapability> capabilities;
    bool restart = false;
    std::optional<std::string> sidecar;  ///< its text, as it stands beside the newer package
    std::string library = {};            ///< the plug-in that an agent brings, empty without one
    bool agent = false;
};

/// The plug-in's place in the package of the agent that brings one.
inline constexpr const char* kDemoLibrary = "weather_agent.so";

/// All of them.
std::vector<DemoDriver> demoDrivers();

}  // namespace depot
