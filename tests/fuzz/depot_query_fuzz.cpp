// The query of a select request, any bytes: it is answered with documents or refused, and the
// answer is well-formed in both cases.
#include <pugixml.hpp>

#include "depot/select_handler.h"
#include "fuzz_input.h"

namespace {

depot::Snapshot::Entry entry(const std::string& name, int version, bool agent) {
    depot::CatalogueEntry made;
    made.document.filename = name;
    made.document.version = version;
    made.document.md5sum = std::string(32, 'a');
    made.document.manufacturer = "Söhne & <Co>";
    made.document.agent = agent;
    if (agent) made.document.minimumOSVersion = "3.2.0";
    return std::make_shared<const depot::CatalogueEntry>(std::move(made));
}

const depot::Snapshot& catalogue() {
    static const depot::Snapshot snapshot(
        {entry("a b.nvz", 3, false), entry("agent.nvz", 12, true), entry("lamp.nvi", -4, false)});
    return snapshot;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string query = textOf(data, size);
    for (const depot::Core core : {depot::Core::kDrivers, depot::Core::kAgents}) {
        const depot::Answer answer = depot::answerSelect(catalogue(), core, query);
        require(answer.status == 200 || answer.status == 400);
        if (answer.contentType.find("html") != std::string::npos) {
            require(answer.status == 400);
            continue;
        }
        pugi::xml_document document;
        require(static_cast<bool>(document.load_buffer(answer.body.data(), answer.body.size())));
        const pugi::xml_node result = document.document_element().child("result");
        require((answer.status == 200) == static_cast<bool>(result));
        require(result.attribute("numFound").as_int() <= 3);
    }
    return 0;
}
