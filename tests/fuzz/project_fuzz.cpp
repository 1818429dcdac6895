// project.xml, any bytes: it is refused with its place, or is the same project once it was saved.
#include "drivers/project.h"

#include <set>

#include "drivers/file_names.h"
#include "fuzz_input.h"
#include "temporary_folder.h"

namespace {

void checkEntries(const overseer::Project& project) {
    std::set<std::uint32_t> ids;
    for (const auto* list : {&project.devices(), &project.agents()}) {
        for (const overseer::ProjectEntry& entry : *list) {
            require(entry.id != 0 && ids.insert(entry.id).second);
            require(overseer::checkDriverFileName(entry.file).has_value());
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const support::TemporaryFolder folder;
    const boost::filesystem::path file = folder / "project.xml";
    support::writeFile(file, textOf(data, size));
    auto project = overseer::Project::load(file);
    if (!project) {
        require(project.error().message.find("project.xml") != std::string::npos);
        require(support::readFile(file) == textOf(data, size));
        return 0;
    }
    checkEntries(*project);
    const std::size_t devices = project->devices().size();
    const std::uint32_t added = project->addDevice("added.nvz", "<\x01&\">");
    checkEntries(*project);
    require(project->devices().size() == devices + 1);
    require(project->save().has_value());

    const auto again = overseer::Project::load(file);
    require(again.has_value());
    checkEntries(*again);
    require(again->devices().size() == devices + 1 && again->devices().back().id == added);
    require(again->agents().size() == project->agents().size());
    return 0;
}
