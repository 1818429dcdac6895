// The text of an evaluation command, any bytes: there is an answer with one whole verdict for each
// item, and nothing outside the controller's folders comes to be. Bare drivers only: a package
// would start the tool, a hundred times slower than everything else together.
#include <boost/filesystem/operations.hpp>

#include "agent_session.h"
#include "fuzz_input.h"
#include "norvane_agent_driverupdate.h"

namespace {

/// A controller with one driver in use and one that nothing uses.
class Controller : public support::AgentSession {
  public:
    Controller() {
        start();
        log.setLevel(log4cplus::FATAL_LOG_LEVEL);
        const std::string manifest =
            "<devicedata><version>5</version><proxies><proxy name=\"light\">dim</proxy></proxies>"
            "<capabilities><level>true</level></capabilities></devicedata>";
        support::writeFile(root / "plain/lamp.nvi", manifest);
        support::writeFile(root / "plain/idle.nvi", manifest);
        support::writeFile(root / "config/proxy_restart.xml",
                           "<restart><proxies><proxy name=\"fan\"/></proxies></restart>");
        host.deviceIds["lamp.nvi"] = {1};
    }
};

void checkVerdict(const nv::XmlNode& driver) {
    require(driver.IsName("driver") && driver.ChildExists("driver_name"));
    const bool success = driver.GetChildData("update_code") == "SUCCESS";
    require(success == driver.GetChildDataBool("can_update_driver"));
    require(success != driver.ChildExists("update_message"));
    require(success == driver.ChildExists("prompt_overwrite"));
    require(driver.GetChildDataBool("prompt_overwrite") ==
            driver.ChildExists("prompt_overwrite_message"));
    require(driver.GetChildDataBool("requires_restart") ==
            driver.ChildExists("requires_restart_message"));
}

bool namesAPackage(const nv::XmlNode::Ptr& items) {
    nv::XmlNodeIterator each = items->GetIterator();
    while (each.HasNext()) {
        const nv::XmlNode::Ptr item = each.Next();
        if (item->GetChildData("new_driver_file").ends_with(".nvz")) return true;
    }
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Controller session;
    session.journal.take();
    const std::string text = textOf(data, size);
    const nv::XmlNode::Ptr items = nv::CreateXmlDocument(text)->GetRoot();
    if (namesAPackage(items)) return -1;

    const nv::XmlNode::Ptr answer = session.ask("EVALUATE_DRIVER", {{"cur_driver_files", text}});
    require(answer->IsName("drivers") && answer->GetChildCount() == items->GetChildCount());
    nv::XmlNodeIterator each = answer->GetIterator();
    while (each.HasNext()) checkVerdict(*each.Next());
    require(support::namesIn(session.host.packagedFolder).empty());
    return 0;
}
