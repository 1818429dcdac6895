#include "drivers/file_names.h"

#include <algorithm>
#include <string_view>

namespace overseer {
namespace {

constexpr std::string_view kPackageExtension = ".nvz";
constexpr std::size_t kLongestName = 255;
/// Room for what belongs to a package's copy: the folder that it is unpacked into, named by the
/// stem with a dot and eight digits, and the checksum file with its extension.
constexpr std::size_t kLongestPackageName = 250;

bool isForbidden(char c) {
    return c == '/' || c == '"' || static_cast<unsigned char>(c) < 0x20 || c == 0x7f;
}

bool isPackage(std::string_view name) {
    return name.size() >= kPackageExtension.size() &&
           name.substr(name.size() - kPackageExtension.size()) == kPackageExtension;
}

}  // namespace

Result<> checkDriverFileName(const std::string& fileName) {
    if (fileName.empty()) return failure("the driver file has no name");
    const std::size_t longest = isPackage(fileName) ? kLongestPackageName : kLongestName;
    if (fileName.size() > longest) {
        return failure("\"{}\" cannot be the name of a driver file: it is longer than {} bytes",
                       fileName, longest);
    }
    if (fileName.front() == '.' || std::any_of(fileName.begin(), fileName.end(), isForbidden)) {
        return failure("\"{}\" cannot be the name of a driver file", fileName);
    }
    const std::string_view name = fileName;
    if (isPackage(name) && isPackage(name.substr(0, name.size() - kPackageExtension.size()))) {
        return failure(
            "\"{}\" cannot be the name of a package: its copy would lie where the "
            "package \"{}\" does",
            fileName, name.substr(0, name.size() - kPackageExtension.size()));
    }
    return {};
}

Result<> checkOfferedFileName(const std::string& fileName) {
    if (Result<> named = checkDriverFileName(fileName); !named) return named;
    if (isPackage(fileName) || boost::filesystem::path(fileName).extension() == ".nvi") return {};
    return failure("{}: neither a package (.nvz) nor a bare driver (.nvi)", fileName);
}

bool isPackageName(const std::string& fileName) {
    return isPackage(fileName);
}

boost::filesystem::path driverFile(const ControllerRoot& root, const std::string& fileName) {
    return (isPackage(fileName) ? root.packagedDrivers() : root.plainDrivers()) / fileName;
}

boost::filesystem::path unpackedFolder(const ControllerRoot& root, const std::string& fileName) {
    return root.packagedDrivers() / fileName.substr(0, fileName.size() - kPackageExtension.size());
}

boost::filesystem::path checksumFile(const ControllerRoot& root, const std::string& fileName) {
    return unpackedFolder(root, fileName) / (fileName + ".md5");
}

}  // namespace overseer
