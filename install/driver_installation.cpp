// Driver installation: the update of one installed file from the catalogue, and the command that
// has the host apply files that are in place already. Entered from catalogue/answer.cpp and from
// the host's dispatcher. Leaves to install/download.cpp, and to the host's driver update and
// restart. Writes no member.
#include <nv/text.h>

#include <boost/filesystem/path.hpp>

#include "norvane_agent_driverupdate.h"

bool norvane_agent_driverupdate::isPackaged(const std::string& filename) {
    return filename.ends_with(".nvz");
}

std::string norvane_agent_driverupdate::driverFolder(const std::string& filename) const {
    return isPackaged(filename) ? GetConfigManager()->GetPackagedDriverFolder()
                                : GetConfigManager()->GetPlainDriverFolder();
}

void norvane_agent_driverupdate::updateDriver(const std::string& filename,
                                              const std::string& md5sum) {
    DRIVERUPDATE_DEBUG("agent_driverupdate: Updating Driver: {}", filename);
    const boost::filesystem::path current =
        boost::filesystem::path(driverFolder(filename)) / filename;
    downloadDriver(current.string(), filename, md5sum, add_agent_data_tuple_type());
}

void norvane_agent_driverupdate::OnCmdUpdateDrivers(const ICmdMessage& message) {
    const bool restart = message.GetBoolParameter("restart_overseer");
    const nv::XmlDocument::Ptr document =
        nv::CreateXmlDocument(message.GetStringParameter("driver_files"));
    const nv::XmlNode::Ptr files = document->GetRoot();
    if (files->GetChildCount() != 0) {
        nv::XmlNodeIterator each = files->GetIterator();
        while (each.HasNext()) {
            const nv::XmlNode::Ptr file = each.Next();
            installDriver(file->GetChildData("driver_name"),
                          file->GetChildDataBool("overseer_restart"));
        }
    }
    // The caller's wish alone decides: neither a file's own flag nor a failure changes it.
    if (!restart) return;
    countPlain("update_restart_overseer");
    DRIVERUPDATE_DEBUG(
        "agent_driverupdate: Driver updated requires a Overseer restart. RESTARTING OVERSEER");
    GetOverseer()->Restart();
}

void norvane_agent_driverupdate::installDriver(const std::string& name, bool requiresRestart) {
    if (GetOverseer()->UpdateDriver(name) < 0) {
        DRIVERUPDATE_ERROR("agent_driverupdate: Driver update failed: {}", name);
        count("cmd_update_failed", name);
        setLastMessage("Driver update failed: " + name);
        recordHistory("Driver Update Failed: " + name, driverupdate::kAutoUpdate, "Failed");
        return;
    }
    DRIVERUPDATE_DEBUG("agent_driverupdate: Driver updated: {}", name);
    count("cmd_update_success", name);
    if (requiresRestart) count("cmd_update_requires_restart", name);
    setLastMessage("Driver updated: " + name);
    recordHistory("Driver Updated: " + name, driverupdate::kAutoUpdate, "Updated");
    notifyUserInterfaces("driver_updated", "driver_name", name);
}
