#pragma once

#include <string>
#include <vector>

#include "depot/document.h"
#include "depot/publish/finding.h"

namespace depot {

/// Finds what keeps controllers from asking for a package by its file name, from taking it, or from
/// fetching it: it runs the queries that they send against a catalogue of this one document.
void checkName(const Document& document, FindingList& findings);

/// The same for an agent that a person adds by name: that lookup sends the name as it was typed,
/// without quotes.
void checkAgentLookup(const Document& document, FindingList& findings);

/// Names for a query, as controllers put them together.
struct NameList {
    std::string text;  ///< escaped and quoted, with commas between; at most 1800 bytes
    std::vector<std::string> names;
};
std::vector<NameList> listsOf(const std::vector<std::string>& names);

/// `name` as controllers escape it in a query: all but letters, digits and -._~ as %XX.
std::string escapedName(const std::string& name);

/// The query, all behind the `?`, with which a controller asks for one file.
/// @param names  the list between the brackets
std::string controllerQuery(const std::string& names, bool forced);

}  // namespace depot
