#pragma once

#include <string>
#include <vector>

#include "agent_session.h"

namespace support {

/// One item of an evaluation, as a user interface would send it.
struct OfferedDriver {
    std::string installedFile;
    std::string offeredFile;
    std::string manifest;
};

/// The parameter that carries these items.
inline std::string offersText(const std::vector<OfferedDriver>& offers) {
    const nv::XmlNode::Ptr files = nv::CreateXmlNode("files", "");
    for (const OfferedDriver& offer : offers) {
        const nv::XmlNode::Ptr item = files->AddChild("file", "");
        item->AddChild("cur_driver_file", offer.installedFile);
        item->AddChild("new_driver_file", offer.offeredFile);
        item->AddChild("new_driver_xml", offer.manifest);
    }
    return files->ToText();
}

/// The agent on a controller with drivers in place, asked by a user interface.
class EvaluationSession : public AgentSession {
  public:
    EvaluationSession() {
        start();
        log.setLevel(log4cplus::WARN_LOG_LEVEL);
    }
    /// Puts a bare driver in place, and a device that uses it.
    void install(const std::string& file, const std::string& manifest) {
        writeFile(root / ("plain/" + file), manifest);
        host.deviceIds[file] = {100017};
    }
    /// The answer as text.
    std::string evaluateText(const std::string& parameter) {
        return ask("EVALUATE_DRIVER", {{"cur_driver_files", parameter}})->ToText();
    }
    std::string evaluate(const std::vector<OfferedDriver>& offers) {
        return evaluateText(offersText(offers));
    }
};

inline std::string failureAnswer(const std::string& file, const std::string& code,
                                 const std::string& message) {
    return "<driver><driver_name>" + file + "</driver_name><update_code>" + code +
           "</update_code><update_message>" + message +
           "</update_message><can_update_driver>false</can_update_driver></driver>";
}

/// @param prompt  empty for none
inline std::string successAnswer(const std::string& file, const std::string& prompt = "",
                                 bool restart = false) {
    std::string text = "<driver><driver_name>" + file +
                       "</driver_name><update_code>SUCCESS</update_code>"
                       "<can_update_driver>true</can_update_driver><prompt_overwrite>";
    text += prompt.empty() ? "false</prompt_overwrite>"
                           : "true</prompt_overwrite><prompt_overwrite_message>" + prompt +
                                 "</prompt_overwrite_message>";
    text += restart ? "<requires_restart>true</requires_restart><requires_restart_message>Driver "
                      "requires restart after update.</requires_restart_message>"
                    : "<requires_restart>false</requires_restart>";
    return text + "</driver>";
}

inline std::string driversAnswer(const std::string& drivers) {
    return drivers.empty() ? "<drivers/>" : "<drivers>" + drivers + "</drivers>";
}

}  // namespace support
