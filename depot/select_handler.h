#pragma once

#include <string_view>

#include "depot/answer.h"
#include "depot/document.h"
#include "depot/snapshot.h"

namespace depot {

/// Answers one select request.
///
/// Parameters: `q` (the first counts; without it nothing is found), any number of `fq`, `fl` (names
/// and patterns, separated by commas or blanks, several are joined; unknown ones are ignored),
/// `rows` (10), `start` (0), `wt` (only "xml"), `indent` ("off" or "false" puts all on one line).
/// Whatever `fl` says, minimumAutoUpdateVersion and minimumOSVersion come with every document that
/// has them. Other parameters are ignored. Documents come in ascending byte order of their file
/// names.
///
/// @param query  the URL's query as it was sent, not decoded
/// @return 200; 400 as XML for what the query language refuses; 400 as HTML for a URL that cannot
/// be
///         decoded
Answer answerSelect(const Snapshot& snapshot, Core core, std::string_view query);

}  // namespace depot
