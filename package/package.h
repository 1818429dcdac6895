#pragma once

#include <boost/filesystem/path.hpp>
#include <map>
#include <pugixml.hpp>
#include <string>
#include <utility>
#include <vector>

// What may replace what: opening driver packages, reading their manifests, and judging an offered
// driver against the installed one. This header holds the records that those activities of the
// agent share; the activities are declared in the agent's class.

namespace driverupdate {

/// One proxy or one capability of a manifest.
struct ManifestRecord {
    /// What binds the record to its place ("proxybindingid", "primary"), as it stands on the
    /// element. Takes no part in comparisons.
    std::vector<std::pair<std::string, std::string>> bindings;
    /// Everything else, by name.
    std::map<std::string, std::string> attributes;
};

/// A manifest's text, parsed once for every question that is asked of it.
struct ParsedManifest {
    explicit ParsedManifest(const std::string& text)
        : result(document.load_buffer(text.data(), text.size())) {}

    /// The element that holds everything, whatever its name.
    pugi::xml_node root() const { return document.document_element(); }

    pugi::xml_document document;
    pugi::xml_parse_result result;  ///< after a failure the document holds a part only
};

/// One item of an evaluation: a driver that somebody wants to put in place of another.
struct DriverOffer {
    std::string installedFile;
    std::string offeredFile;
    std::string offeredManifest;
};

/// What an evaluation found of an offer that may replace the installed driver.
struct Verdict {
    std::string prompt;  ///< why to ask before overwriting; empty when there is no need to
    bool requiresRestart = false;
};

/// Why an offer may not replace the installed driver.
struct EvaluationFailure {
    const char* code;
    const char* message;  ///< for the user
    const char* logText;  ///< followed by the file's name in the log
    const char* metric;   ///< null when it is not counted
};

/// Whether there is anything at that path; false also when that cannot be found out.
bool isPresent(const boost::filesystem::path& path);

/// Whether what lies in a file's place is a pipe, a socket or a device: `unzip` would wait for its
/// end for as long as it is let, and the whole host with it.
bool isEndless(const boost::filesystem::path& path);

}  // namespace driverupdate
