#include "services/agent_settings.h"

#include <boost/algorithm/string/replace.hpp>
#include <exception>

#include "common/log.h"

namespace overseer {
namespace {

/// A carriage return that is not written as a reference reads back as a line feed.
std::string textOf(const nv::XmlNode& node) {
    return boost::replace_all_copy(node.ToText(true), "\r", "&#13;");
}

}  // namespace

Result<nv::XmlNode::Ptr> AgentSettings::restore(const std::string& agent) {
    const Result<std::string> xml = stored(agent);
    if (!xml) return tl::unexpected(xml.error());
    nv::XmlNode::Ptr node = nv::CreateXmlDocument(*xml)->GetRoot();
    if (xml->empty() || !node->IsEmpty()) return node;
    // Defaults in the place of settings may switch on what somebody has switched off: never without
    // a word.
    const std::optional<std::string> copy = store_.copyOf(agent);
    if (copy) node = nv::CreateXmlDocument(*copy)->GetRoot();
    log::error(fmt::format("the stored settings of {} cannot be understood; {}", agent,
                           copy ? "those of their copy are in force: look at them"
                                : "it starts with its defaults: set them again"));
    return node;
}

Result<> AgentSettings::collect(const std::string& agent, IDriverOperations& operations) {
    std::string xml;
    try {
        if (!operations.GetPersistState()) return {};
        const nv::XmlNode::Ptr node = operations.GetPersistData();
        if (!node || node->IsEmpty()) return {};
        xml = textOf(*node);
    } catch (const std::exception& thrown) {
        return failure("{} threw when it was asked for its settings: {}", agent, thrown.what());
    } catch (...) {
        return failure("{} threw something unknown when it was asked for its settings", agent);
    }
    const Result<bool> written = store_.store(agent, xml);
    if (!written) return tl::unexpected(written.error());
    return {};
}

std::string AgentSettings::unstored(const std::string& agent, IDriverOperations& operations) {
    const nv::XmlNode::Ptr node =
        operations.GetPersistState() ? operations.GetPersistData() : nullptr;
    const Result<nv::XmlNode::Ptr> known = restore(agent);
    if (!node) return {};
    std::string lost;
    for (nv::XmlNodeIterator children = node->GetIterator(); children.HasNext();) {
        const nv::XmlNode::Ptr child = children.Next();
        const std::string name = child->GetName();
        if (known && (*known)->ChildExists(name) &&
            (*known)->GetChildData(name) == child->GetData())
            continue;
        lost += fmt::format("{}{} \"{}\"", lost.empty() ? "" : ", ", name, child->GetData());
    }
    return lost;
}

Result<std::string> AgentSettings::stored(const std::string& agent) {
    const Result<std::optional<std::string>> xml = store_.find(agent);
    if (!xml) return inContext("cannot read the settings of " + agent, xml.error());
    return xml->value_or(std::string());
}

}  // namespace overseer
