// What has a place in the project: devices, and packaged agents with the plug-ins that they bring.

#include "drivers/packaged_agents.h"

#include <boost/filesystem/operations.hpp>
#include <utility>

#include "drivers/file_names.h"

namespace overseer {
namespace fs = boost::filesystem;

namespace {

bool isInside(const fs::path& file, const fs::path& folder) {
    auto part = file.begin();
    for (const fs::path& expected : folder) {
        if (part == file.end() || *part != expected) return false;
        ++part;
    }
    return part != file.end();
}

/// All or nothing: a project that could not be written is as it was.
template <typename Change>
Result<> changeProject(Project& project, const Change& change) {
    Project changed = project.clone();
    change(changed);
    if (Result<> saved = changed.save(); !saved) return saved;
    project = std::move(changed);
    return {};
}

Result<> putAgent(Project& project, const std::string& fileName, const std::string& name,
                  const std::string& library) {
    return changeProject(project,
                         [&](Project& changed) { changed.addAgent(fileName, name, library); });
}

const ProjectEntry* findAgent(const Project& project, const std::string& fileName) {
    for (const ProjectEntry& agent : project.agents()) {
        if (agent.file == fileName) return &agent;
    }
    return nullptr;
}

}  // namespace

Result<fs::path> agentLibrary(const ControllerRoot& root, const std::string& fileName,
                              const std::string& library) {
    if (!isPackageName(fileName)) return failure("{} is no package", fileName);
    boost::system::error_code error;
    const fs::path folder = fs::canonical(unpackedFolder(root, fileName), error);
    if (error) return failure("the unpacked copy of {}: {}", fileName, error.message());
    const fs::path named = fs::path(library).relative_path();
    const fs::path file = fs::canonical(folder / named, error);
    if (error) return failure("the library {} of {}: {}", library, fileName, error.message());
    if (!isInside(file, folder) || !fs::is_regular_file(file, error)) {
        return failure("the library {} of {} is no file of the package", library, fileName);
    }
    return file;
}

Result<ProjectEntry> enterAgent(Project& project, const ControllerRoot& root,
                                const std::string& fileName, const AppliedDriver& applied,
                                const std::string& name, const std::string& library) {
    // The manifest's own goes first: every later apply would go back to it.
    const bool wanted = applied.library.empty() && !library.empty() &&
                        agentLibrary(root, fileName, library).has_value();
    const Result<> put = putAgent(project, fileName, name.empty() ? applied.name : name,
                                  wanted ? library : applied.library);
    if (!put) return tl::unexpected<Error>(put.error());
    return *findAgent(project, fileName);
}

Result<> followAgent(Project& project, const ControllerRoot& root, const std::string& fileName,
                     const AppliedDriver& applied) {
    const ProjectEntry* known = findAgent(project, fileName);
    if (known == nullptr && !applied.agent) return {};
    const std::string name = known != nullptr ? known->name : applied.name;
    std::string library = applied.library;
    if (library.empty() && known != nullptr && !known->library.empty() &&
        agentLibrary(root, fileName, known->library)) {
        library = known->library;
    }
    if (known != nullptr && known->library == library) return {};
    return putAgent(project, fileName, name, library);
}

Result<bool> giveItsPlace(Project& project, const ControllerRoot& root, const std::string& fileName,
                          const AppliedDriver& driver) {
    const bool isNew = project.deviceIds(fileName).empty();
    Result<> done;
    if (driver.agent) {
        done = followAgent(project, root, fileName, driver);
    } else if (isNew) {
        done = changeProject(project,
                             [&](Project& changed) { changed.addDevice(fileName, driver.name); });
    }
    if (!done) return tl::unexpected<Error>(done.error());
    return isNew;
}

}  // namespace overseer
