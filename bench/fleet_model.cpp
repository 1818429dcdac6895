// How many requests a fleet of controllers sends in its busiest minute. Each controller draws its
// daily minute as the agent does and asks for its drivers in the agent's batches; nothing is
// simplified but the names of the drivers.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr int kDrivers = 60;
constexpr int kHours = 4;
constexpr int kMinutes = 59;  // the last minute of an hour is never drawn
constexpr std::size_t kLongestBatch = 1800;
// Escaped file names of drivers: 24 characters in the middle, as in the demo's packages.
constexpr std::size_t kShortestName = 12;
constexpr std::size_t kLongestName = 36;
// Around a batch in a request: path, filter, fields and the headers of a controller.
constexpr std::size_t kAroundBatch = 330;
constexpr std::size_t kAroundAnswer = 700;
constexpr std::size_t kDocument = 330;  // measured: one document of an indented answer

struct Load {
    std::vector<long> requests = std::vector<long>(kHours * 60, 0);
    std::vector<long> bytesAsked = std::vector<long>(kHours * 60, 0);
    long all = 0;
};

/// The batches of one run: how long each is.
std::vector<std::size_t> batches(std::mt19937& random) {
    std::vector<std::size_t> lengths;
    std::size_t length = 0;
    for (int driver = 0; driver < kDrivers; ++driver) {
        const std::size_t name = kShortestName + random() % (kLongestName - kShortestName + 1);
        if (driver == 0) {
            length = name + 2;
        } else if (length + name + 3 > kLongestBatch) {
            lengths.push_back(length);
            length = name + 2;
        } else {
            length += name + 3;
        }
    }
    lengths.push_back(length);
    return lengths;
}

/// Two events a controller, the normal run and the forced one. The agent seeds its generator with
/// the second in which it makes them, so both are drawn alike; the host then delivers the second
/// one a minute after the first.
Load fleet(int controllers, std::mt19937& random) {
    Load load;
    for (int controller = 0; controller < controllers; ++controller) {
        std::srand(static_cast<unsigned>(random()));
        const int hours = std::rand() % kHours;
        const int minute = hours * 60 + std::rand() % kMinutes;
        for (int event = 0; event < 2; ++event) {
            const auto at = static_cast<std::size_t>(minute + event);
            for (const std::size_t length : batches(random)) {
                ++load.all;
                ++load.requests[at];
                load.bytesAsked[at] += static_cast<long>(length + kAroundBatch);
            }
        }
    }
    return load;
}

}  // namespace

/// Prints one JSON line a fleet: requests per second in the busiest minute, bytes asked and
/// answered in it, and requests a day.
int main() {
    std::mt19937 random(20260101);
    for (const int controllers : {10'000, 100'000, 1'000'000}) {
        const Load load = fleet(controllers, random);
        const auto busiest = std::max_element(load.requests.begin(), load.requests.end());
        const auto at = static_cast<std::size_t>(busiest - load.requests.begin());
        const double perRun = static_cast<double>(load.all) / (2.0 * controllers);
        const double answered =
            static_cast<double>(*busiest) * (kAroundAnswer + kDocument * kDrivers / perRun);
        std::printf(
            "{\"controllers\": %d, \"requestsPerDay\": %ld, \"batchesPerRun\": %.2f, "
            "\"busiestMinute\": %ld, \"perSecond\": %.1f, \"megabytesAsked\": %.1f, "
            "\"megabytesAnswered\": %.1f}\n",
            controllers, load.all, perRun, *busiest, static_cast<double>(*busiest) / 60,
            static_cast<double>(load.bytesAsked[at]) / 1e6, answered / 1e6);
    }
    return 0;
}
