#pragma once

#include <pugixml.hpp>
#include <string>
#include <vector>

#include "ctl/session.h"

/// Driver files that a person has at hand, and what the controller says to them.
namespace overseer::ctl {

/// A file that is to replace the installed driver of the same name.
struct Offer {
    std::string name;      ///< of the installed driver
    std::string path;      ///< absolute, no link
    std::string manifest;  ///< as UTF-8
    std::string problem;   ///< why it cannot be offered at all; empty when it can
};

/// Reads a package's or a bare driver's manifest. A problem is noted in the offer.
/// @param name  of the installed driver; empty for the file's own name
Offer readOffer(const std::string& file, const std::string& name);

/// A message that begins with the offer's file, for a place where that stands before it anyway.
std::string withoutSubject(std::string message, const Offer& offer);

/// What the agent says to an offer.
struct Verdict {
    bool mayReplace = false;
    std::string code;     ///< "SUCCESS", or why not
    std::string problem;  ///< why not, in words
    bool asksFirst = false;
    std::string question;  ///< why to ask
    bool restarts = false;
    std::string restartReason;
};

/// The answers of the agent to some offers: a "drivers" element, with a "driver" for each.
using Answers = pugi::xml_document;

/// Has the agent judge all offers that have no problem, in their order.
Answered<> evaluateOffers(Session& session, const std::vector<Offer>& offers, Answers& answers);

Verdict toVerdict(pugi::xml_node driver);

}  // namespace overseer::ctl
