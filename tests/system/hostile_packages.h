#pragma once

#include <string>
#include <vector>

namespace faults {

/// A package of one version as it should be.
std::string goodPackage(int version);
/// A bare driver of one version.
std::string goodDriver(int version);

/// Stems of the packages that `hostilePackage` makes.
const std::vector<std::string>& hostilePackageNames();
/// The bytes of the hostile package of that stem; each states the version where it states any.
std::string hostilePackage(const std::string& stem, int version);

std::string md5Of(const std::string& bytes);

}  // namespace faults
