// Package loading: the manifest of a driver file, out of a package or of a bare driver.
// Entered from package/evaluation.cpp and install/agent_registration.cpp. Leaves to the host's
// `unzip`, and to package/manifest_queries.cpp for versions. Writes no member.
//
// A package is unpacked beside itself, into a folder that carries its name without the extension,
// and the manifest is read there. The copy stays, and serves until it is out of date.
#include <nv/archive.h>
#include <nv/crypto.h>
#include <nv/file.h>
#include <nv/system.h>

#include <boost/filesystem/operations.hpp>

#include "norvane_agent_driverupdate.h"

namespace fs = boost::filesystem;
using driverupdate::isPresent;

/// Where a package lies, and what belongs to its extracted copy.
struct norvane_agent_driverupdate::PackagePaths {
    PackagePaths(const fs::path& packages, const fs::path& name)
        : package(name.has_root_directory() ? name : packages / name),
          stem(package.stem().string()),
          folder(packages),
          copy(folder / stem),
          manifest(copy / kManifest),
          checksum(copy / (package.filename().string() + ".md5")) {}

    /// The copy's folder is removed as a whole, so its name must be one that only this package
    /// has: not the folder of all packages (an empty name, a root), nor that of a package with
    /// this one's name. And there must be room for what unpacking puts to it.
    bool nameTheCopyAlone() const {
        constexpr std::size_t kLongest = 250;
        return package.filename().size() <= kLongest && package != folder && !stem.empty() &&
               stem != "." && stem != ".." && stem.find('/') == std::string::npos &&
               !stem.ends_with(".nvz");
    }

    static constexpr const char* kManifest = "driver.xml";

    fs::path package;
    std::string stem;
    fs::path folder;
    fs::path copy;
    fs::path manifest;
    fs::path checksum;
};

namespace {

bool isEmpty(const fs::path& path) {
    // A manifest that is missing is for the read to tell, not an error of the file system.
    boost::system::error_code ignored;
    return fs::is_empty(path, ignored);
}

/// A fresh folder, gone again at the end unless it was renamed.
class StagingFolder {
  public:
    StagingFolder(const fs::path& parent, const std::string& stem) {
        do {
            path_ = parent / fs::unique_path(stem + ".%%%%%%%%");
        } while (isPresent(path_));
    }
    ~StagingFolder() {
        boost::system::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    StagingFolder(const StagingFolder&) = delete;
    StagingFolder& operator=(const StagingFolder&) = delete;

    const fs::path& path() const { return path_; }
    fs::path log() const { return path_ / "unzip.out"; }

  private:
    fs::path path_;
};

/// Copies the tool's output to where somebody who looks for the package finds it.
void keepLog(const fs::path& from, const fs::path& to) {
    // A package may have brought a link of this name; writing through it would hit a stranger.
    if (fs::is_symlink(fs::symlink_status(to))) fs::remove(to);
    fs::copy_file(from, to, fs::copy_options::overwrite_existing);
}

}  // namespace

bool driverupdate::isPresent(const fs::path& path) {
    boost::system::error_code ignored;
    const fs::file_type type = fs::status(path, ignored).type();
    return type != fs::status_error && type != fs::file_not_found;
}

bool driverupdate::isEndless(const fs::path& path) {
    boost::system::error_code ignored;
    return fs::is_other(path, ignored);
}

RESULTX norvane_agent_driverupdate::loadNVI(const std::string& fileName, std::string& xml) const {
    fs::path path = fs::path(GetConfigManager()->GetPlainDriverFolder()) / fileName;
    if (!path.has_extension()) path.replace_extension(".nvi");
    DRIVERUPDATE_INFO("{}: Reading NVI file: {}", "loadNVI", path.string());
    if (!isPresent(path)) {
        DRIVERUPDATE_ERROR("{}: The .nvi file does not exist: \"{}\"", "loadNVI", path.string());
        return -1;
    }
    if (isEmpty(path)) {
        DRIVERUPDATE_ERROR("{}: Zero-length .nvi file: \"{}\"", "loadNVI", path.string());
        return -1;
    }
    return FileX::Load(path.string(), xml);
}

RESULTX norvane_agent_driverupdate::loadNVZ(const std::string& fileName, std::string& xml) const {
    const PackagePaths paths(GetConfigManager()->GetPackagedDriverFolder(), fileName);
    if (!paths.nameTheCopyAlone() || driverupdate::isEndless(paths.package)) return -1;
    if (!isPresent(paths.package)) {
        // The copy may still serve; what cannot, fails below with its own reason.
        DRIVERUPDATE_WARN("{}: Driver path does not exist: {}", "loadNVZ", paths.package.string());
    }
    if (!isCopyCurrent(fileName, paths)) extractPackage(paths);
    return readExtractedManifest(paths, xml);
}

bool norvane_agent_driverupdate::isCopyCurrent(const std::string& fileName,
                                               const PackagePaths& paths) const {
    if (!isPresent(paths.copy)) return false;
    if (isPresent(paths.checksum)) {
        std::string stored;
        if (FileX::Load(paths.checksum.string(), stored) >= 0) {
            boost::system::error_code error;
            const std::string computed = nv::crypto::computeFileHash(
                paths.package.string(), "md5", error, nv::crypto::CryptoEncoding::kHexLower);
            if (!error && computed == stored) return true;
        }
    }
    if (!isPresent(paths.manifest)) {
        DRIVERUPDATE_ERROR("{}: \"{}\" does not exist", "loadNVZ", paths.manifest.string());
        return false;
    }
    return isCopyNewer(fileName, paths);
}

bool norvane_agent_driverupdate::isCopyNewer(const std::string& fileName,
                                             const PackagePaths& paths) const {
    std::string manifest;
    int copyVersion = 0;
    if (FileX::Load(paths.manifest.string(), manifest) < 0) return false;
    if (!getDriverVersion(fileName, manifest, copyVersion)) return false;

    std::string error;
    if (!nv::archive::expand_zip(paths.package.string(), PackagePaths::kManifest, manifest,
                                 error)) {
        DRIVERUPDATE_ERROR("{}: Failed to extract \"{}\" from \"{}\": {}", "loadNVZ",
                           PackagePaths::kManifest, paths.package.string(), error);
        return true;  // nothing better is to be had from this package
    }
    int packageVersion = 0;
    if (!getDriverVersion(fileName, manifest, packageVersion)) return false;
    return packageVersion < copyVersion;
}

void norvane_agent_driverupdate::extractPackage(const PackagePaths& paths) {
    const StagingFolder staging(paths.folder, paths.stem);
    DRIVERUPDATE_DEBUG("{}: Extracting .nvz driver: \"{}\" to \"{}\"", "loadNVZ",
                       paths.package.string(), staging.path().string());
    fs::create_directory(staging.path());
    const std::string command =
        fmt::format("unzip \"{}\" -d \"{}\" >> \"{}\" 2>&1", paths.package.string(),
                    staging.path().string(), staging.log().string());
    if (nv::system(command.c_str()) == 0) {
        fs::remove_all(paths.copy);
        fs::rename(staging.path(), paths.copy);
        return;
    }
    const fs::path keptLog = paths.copy / "unzip.out";
    if (!isPresent(paths.copy)) fs::create_directory(paths.copy);
    keepLog(staging.log(), keptLog);
    fs::remove_all(staging.path());
    // What is there is no longer known to be this package's copy.
    fs::remove(paths.checksum);
    DRIVERUPDATE_ERROR(
        "{}: One (or more) errors while extracting \"{}\". This driver may not function "
        "correctly.For specified details about these errors see: \"{}\"",
        "loadNVZ", paths.package.string(), keptLog.string());
}

RESULTX norvane_agent_driverupdate::readExtractedManifest(const PackagePaths& paths,
                                                          std::string& xml) {
    DRIVERUPDATE_INFO("Reading nvz driver: {}", paths.manifest.string());
    RESULTX result = -1;
    if (isEmpty(paths.manifest)) {
        DRIVERUPDATE_ERROR("{}: .nvz driver file has zero length: \"{}\"", "loadNVZ",
                           paths.manifest.string());
    } else {
        // Refuses a link: one that a package brought may lead anywhere.
        result = FileX::Load(paths.manifest.string(), xml);
        if (result >= 0) return result;
    }
    DRIVERUPDATE_ERROR("{}: Unable to read .nvz driver: \"{}\"", "loadNVZ",
                       paths.manifest.string());
    return result;
}
