#include "drivers/driver_check.h"

#include <nvhost/children.h>

namespace overseer {

std::vector<CheckedDriver> checkDrivers(const std::set<std::string>& fileNames,
                                        DriverApplication& application) {
    std::vector<CheckedDriver> checked;
    for (const std::string& fileName : fileNames) {
        if (nv::hosting::childrenStopped()) break;
        checked.push_back({fileName, application.apply(fileName, Occasion::kStart)});
    }
    return checked;
}

}  // namespace overseer
