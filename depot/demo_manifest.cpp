#include "depot/demo_manifest.h"

#include <pugixml.hpp>
#include <sstream>

namespace depot {
namespace {

constexpr int kFirstProxyBinding = 5001;

void addText(pugi::xml_node parent, const char* name, const std::string& text) {
    parent.append_child(name).text().set(text.c_str());
}

void addProxies(pugi::xml_node root, const DemoDriver& driver) {
    if (driver.proxies.empty()) return;
    pugi::xml_node proxies = root.append_child("proxies");
    int binding = kFirstProxyBinding;
    for (const DemoProxy& each : driver.proxies) {
        pugi::xml_node proxy = proxies.append_child("proxy");
        proxy.append_attribute("proxybindingid").set_value(binding);
        proxy.append_attribute("name").set_value(each.name.c_str());
        if (binding == kFirstProxyBinding) proxy.append_attribute("primary").set_value("True");
        proxy.text().set(each.kind.c_str());
        ++binding;
    }
}

void addConfig(pugi::xml_node root, const DemoDriver& driver, int version) {
    pugi::xml_node config = root.append_child("config");
    if (!driver.filename.ends_with(".nvz")) {
        config.append_child("script")
            .append_child(pugi::node_cdata)
            .set_value(demoScript(driver, version).c_str());
        return;
    }
    config.append_child("script").append_attribute("file").set_value("driver.lua");
    config.append_child("documentation")
        .append_attribute("file")
        .set_value("www/documentation.html");
    pugi::xml_node pictures = root.append_child("pictures");
    for (const char* size : {"16", "32", "70"}) {
        pugi::xml_node picture = pictures.append_child("picture");
        picture.append_attribute("size").set_value(size);
        picture.append_attribute("file").set_value(
            ("www/icons/device_" + std::string(size) + ".png").c_str());
    }
}

std::string escaped(const std::string& text) {
    std::string out;
    for (const char character : text) {
        if (character == '&')
            out += "&amp;";
        else
            out += character;
    }
    return out;
}

}  // namespace

std::string demoManifest(const DemoDriver& driver, int version) {
    pugi::xml_document manifest;
    pugi::xml_node root = manifest.append_child("devicedata");
    addText(root, "name", driver.name);
    addText(root, "model", driver.model);
    addText(root, "manufacturer", driver.manufacturer);
    addText(root, "version", std::to_string(version));
    addText(root, "modified", "2026-0" + std::to_string(1 + version % 9) + "-15 09:30");
    addText(root, "creator", driver.manufacturer);
    if (driver.agent) addText(root, "agent", "true");
    if (!driver.library.empty()) addText(root, "library", driver.library);
    if (driver.restart) addText(root, "restart_after_update", "true");
    addProxies(root, driver);
    pugi::xml_node capabilities = root.append_child("capabilities");
    for (const DemoCapability& each : driver.capabilities)
        addText(capabilities, each.name.c_str(), each.value);
    addConfig(root, driver, version);
    std::ostringstream text;
    manifest.save(text, "    ", pugi::format_default, pugi::encoding_utf8);
    return text.str();
}

std::string demoScript(const DemoDriver& driver, int version) {
    std::ostringstream script;
    script
        << "-- " << driver.name << " (" << driver.model << "), driver version " << version << "\n\n"
        << "DRIVER_VERSION = " << version << "\n\n"
        << "function OnDriverInit()\n    Properties = { polling = 30 }\n    SetStatus(\"ready\")\n"
        << "end\n\n";
    int binding = kFirstProxyBinding;
    for (const DemoProxy& proxy : driver.proxies) {
        script << "-- " << proxy.name << "\n"
               << "function Received_" << proxy.kind << "(command, parameters)\n"
               << "    if command == \"GET_STATE\" then\n"
               << "        SendToProxy(" << binding << ", \"STATE\", State[" << binding << "])\n"
               << "    else\n        QueueForDevice(command, parameters)\n    end\nend\n\n";
        ++binding;
    }
    return script.str();
}

std::string demoPage(const DemoDriver& driver, int version) {
    std::ostringstream page;
    page << "<!DOCTYPE html>\n<html>\n<head><meta charset=\"utf-8\"><title>" << escaped(driver.name)
         << "</title></head>\n<body>\n<h1>" << escaped(driver.name) << "</h1>\n<p>"
         << escaped(driver.manufacturer) << " " << escaped(driver.model) << ", driver version "
         << version << ".</p>\n<h2>Connections</h2>\n<ul>\n";
    for (const DemoProxy& proxy : driver.proxies)
        page << "<li>" << escaped(proxy.name) << " (" << proxy.kind << ")</li>\n";
    page << "</ul>\n<h2>Properties</h2>\n<table>\n";
    for (const DemoCapability& capability : driver.capabilities)
        page << "<tr><td>" << capability.name << "</td><td>" << capability.value << "</td></tr>\n";
    page << "</table>\n</body>\n</html>\n";
    return page.str();
}

}  // namespace depot
