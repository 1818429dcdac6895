#pragma once

#include <string>

#include "depot/demo_drivers.h"

namespace depot {

/// The manifest of a sample driver in one version, as XML text.
std::string demoManifest(const DemoDriver& driver, int version);

/// The script that a packaged sample driver carries.
std::string demoScript(const DemoDriver& driver, int version);

/// The page for the dealer that it carries.
std::string demoPage(const DemoDriver& driver, int version);

}  // namespace depot
