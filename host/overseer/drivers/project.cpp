// The project file: read once, changed in its tree so that a person's comments stay, and replaced
// as a whole.

#include "drivers/project.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <pugixml.hpp>
#include <set>
#include <sstream>

#include "drivers/file_names.h"
#include "root/file_text.h"
#include "root/placement.h"

namespace overseer {
namespace {

using boost::filesystem::path;

constexpr unsigned int kParsing =
    pugi::parse_default | pugi::parse_comments | pugi::parse_declaration | pugi::parse_pi;

constexpr std::uint32_t kLargestId = std::numeric_limits<std::uint32_t>::max() - 1;

/// "FILE:LINE:COLUMN" of a place in the text.
std::string placeOf(const path& file, const std::string& text, std::ptrdiff_t offset) {
    const auto end =
        std::clamp<std::size_t>(offset < 0 ? 0 : static_cast<std::size_t>(offset), 0, text.size());
    const auto at = text.begin() + static_cast<std::ptrdiff_t>(end);
    const auto line = 1 + std::count(text.begin(), at, '\n');
    const std::size_t lineStart = end == 0 ? std::string::npos : text.rfind('\n', end - 1);
    const std::size_t column = lineStart == std::string::npos ? end + 1 : end - lineStart;
    return fmt::format("{}:{}:{}", file.string(), line, column);
}

pugi::xml_node childOf(pugi::xml_node parent, const char* name) {
    const pugi::xml_node child = parent.child(name);
    return child ? child : parent.append_child(name);
}

Result<std::uint32_t> readId(pugi::xml_node node) {
    const char* text = node.attribute("id").value();
    const unsigned long long id = node.attribute("id").as_ullong();
    if (id > 0 && id <= kLargestId && std::to_string(id) == text) {
        return static_cast<std::uint32_t>(id);
    }
    return failure("<{}> has no id that is a number from 1 on", node.name());
}

Result<ProjectEntry> readEntry(pugi::xml_node node) {
    const Result<std::uint32_t> id = readId(node);
    if (!id) return tl::unexpected<Error>(id.error());
    ProjectEntry entry;
    entry.id = *id;
    entry.name = node.attribute("name").value();
    entry.file = node.attribute("file").value();
    entry.library = node.attribute("library").value();
    if (const Result<> named = checkDriverFileName(entry.file); !named) {
        return failure("<{} id=\"{}\">: {}", node.name(), entry.id, named.error().message);
    }
    return entry;
}

void set(pugi::xml_node node, const char* name, const std::string& value) {
    pugi::xml_attribute attribute = node.attribute(name);
    if (!attribute) attribute = node.append_attribute(name);
    attribute.set_value(value.c_str());
}

void fill(pugi::xml_node node, const ProjectEntry& entry) {
    set(node, "id", std::to_string(entry.id));
    set(node, "name", entry.name);
    set(node, "file", entry.file);
    if (!entry.library.empty() || node.attribute("library")) set(node, "library", entry.library);
}

std::vector<ProjectEntry>::iterator findFile(std::vector<ProjectEntry>& entries,
                                             const std::string& file) {
    return std::find_if(entries.begin(), entries.end(),
                        [&file](const ProjectEntry& entry) { return entry.file == file; });
}

}  // namespace

Project::Project(path file, std::unique_ptr<pugi::xml_document> document)
    : file_(std::move(file)), document_(std::move(document)) {}
Project::Project(Project&&) noexcept = default;
Project& Project::operator=(Project&&) noexcept = default;
Project::~Project() = default;

Result<Project> Project::load(const path& file) {
    const Result<std::string> read = readText(file);
    if (!read) return tl::unexpected<Error>(read.error());
    const std::string& text = *read;
    Project project(file, std::make_unique<pugi::xml_document>());
    const pugi::xml_parse_result parsed =
        project.document_->load_buffer(text.data(), text.size(), kParsing);
    if (!parsed) {
        return failure("{}: {}", placeOf(file, text, parsed.offset), parsed.description());
    }
    if (const Result<> understood = project.read(text); !understood) {
        return tl::unexpected<Error>(understood.error());
    }
    return project;
}

Result<> Project::read(const std::string& text) {
    const pugi::xml_node root = document_->document_element();
    const auto refuse = [&](pugi::xml_node node, const std::string& why) {
        return failure("{}: {}", placeOf(file_, text, node.offset_debug()), why);
    };
    if (std::strcmp(root.name(), "project") != 0) {
        return refuse(root, "the root element is not <project>");
    }
    for (pugi::xml_node other = root.next_sibling(); other; other = other.next_sibling()) {
        if (other.type() == pugi::node_element) return refuse(other, "a second root element");
    }
    std::set<std::uint32_t> ids;
    const auto readAll = [&](const char* list, const char* name,
                             std::vector<ProjectEntry>& entries) -> Result<> {
        for (const pugi::xml_node node : root.child(list).children(name)) {
            Result<ProjectEntry> entry = readEntry(node);
            if (!entry) return refuse(node, entry.error().message);
            if (!ids.insert(entry->id).second) {
                return refuse(node, fmt::format("the id {} is there twice", entry->id));
            }
            entries.push_back(std::move(*entry));
        }
        return {};
    };
    Result<> done = readAll("devices", "device", devices_);
    if (done) done = readAll("agents", "agent", agents_);
    return done;
}

std::vector<std::uint32_t> Project::deviceIds(const std::string& file) const {
    std::vector<std::uint32_t> ids;
    for (const auto* entries : {&devices_, &agents_}) {
        for (const ProjectEntry& entry : *entries) {
            if (entry.file == file) ids.push_back(entry.id);
        }
    }
    std::sort(ids.begin(), ids.end());
    return ids;
}

bool Project::isTaken(std::uint32_t id) const {
    const auto hasId = [id](const ProjectEntry& entry) { return entry.id == id; };
    return std::any_of(devices_.begin(), devices_.end(), hasId) ||
           std::any_of(agents_.begin(), agents_.end(), hasId);
}

std::uint32_t Project::nextId() {
    const pugi::xml_node root = document_->document_element();
    std::uint32_t next = std::max(1u, root.attribute("next-id").as_uint());
    // The file may have been edited by hand.
    for (const auto* entries : {&devices_, &agents_}) {
        for (const ProjectEntry& entry : *entries) next = std::max(next, entry.id + 1);
    }
    if (next <= kLargestId) {
        set(root, "next-id", std::to_string(next + 1));
        return next;
    }
    // Written so by hand; an id beyond the largest would be refused at the next start.
    for (next = 1; isTaken(next); ++next) continue;
    return next;
}

std::uint32_t Project::addDevice(const std::string& file, const std::string& name) {
    const ProjectEntry entry{nextId(), name, file, ""};
    fill(childOf(document_->document_element(), "devices").append_child("device"), entry);
    devices_.push_back(entry);
    return entry.id;
}

std::uint32_t Project::addAgent(const std::string& file, const std::string& name,
                                const std::string& library) {
    const pugi::xml_node root = document_->document_element();
    pugi::xml_node list = childOf(root, "agents");
    if (const auto known = findFile(agents_, file); known != agents_.end()) {
        *known = {known->id, name, file, library};
        fill(list.find_child_by_attribute("agent", "file", file.c_str()), *known);
        return known->id;
    }
    ProjectEntry entry{0, name, file, library};
    if (const auto device = findFile(devices_, file); device != devices_.end()) {
        entry.id = device->id;
        pugi::xml_node devices = root.child("devices");
        devices.remove_child(devices.find_child_by_attribute("device", "file", file.c_str()));
        devices_.erase(device);
    } else {
        entry.id = nextId();
    }
    fill(list.append_child("agent"), entry);
    agents_.push_back(entry);
    return entry.id;
}

Project Project::clone() const {
    Project copy(file_, std::make_unique<pugi::xml_document>());
    copy.document_->reset(*document_);
    copy.devices_ = devices_;
    copy.agents_ = agents_;
    return copy;
}

Result<> Project::save() const {
    std::ostringstream text;
    document_->save(text, "    ", pugi::format_default, pugi::encoding_utf8);
    return writeInPlace(file_, text.str(), Flush::kBefore);
}

void Project::AddDriverFileNames(std::set<std::string>& names) const {
    std::set<std::string> agents;
    AddAgentFileNames(agents);
    for (const ProjectEntry& device : devices_) {
        if (agents.count(device.file) == 0) names.insert(device.file);
    }
}

void Project::AddAgentFileNames(std::set<std::string>& names) const {
    for (const ProjectEntry& agent : agents_) names.insert(agent.file);
}

}  // namespace overseer
