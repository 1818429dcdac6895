#include <fmt/format.h>
#include <algorithm>
#include <nlohmann/json.hpp>
#include <ostream>
#include <pugixml.hpp>

#include "ctl/commands.h"
#include "ctl/exit_codes.h"
#include "ctl/notification_watch.h"
#include "ctl/table.h"

// What the host told its user interfaces: what is kept, or as it comes, over restarts of the host.
namespace overseer::ctl {
namespace {

constexpr std::chrono::milliseconds kFirstRetry{200};
constexpr std::chrono::milliseconds kLastRetry{2'000};
constexpr int kShownChildren = 8;

/// "driver_updated  driver_name: Dimmer.nvz": the node in one line.
std::string summaryOf(const std::string& xml) {
    pugi::xml_document document;
    if (!document.load_buffer(xml.data(), xml.size())) {
        return xml;
    }
    const pugi::xml_node root = document.document_element();
    std::string text = root.name();
    int children = 0;
    for (const pugi::xml_node child : root.children()) {
        if (child.type() != pugi::node_element) {
            continue;
        }
        if (++children > kShownChildren) {
            return text + " ...";
        }
        text +=
            fmt::format("{}{}: {}", children == 1 ? "  " : ", ", child.name(), child.text().get());
    }
    return text;
}

void printEvent(Session& session, const Json& event) {
    if (session.json) {
        session.console.out << event.dump() << std::endl;
        return;
    }
    const std::string xml = textOf(event, "xml");
    session.console.out << fmt::format(
                               "#{}  {}  {}  {}", numberOf(event, "number"),
                               localTimeOf(event, "at"), printable(textOf(event, "source")),
                               printable(xml.empty() ? textOf(event, "message") : summaryOf(xml)))
                        << std::endl;
}

int listEvents(Session& session, std::uint64_t from) {
    for (;;) {
        const auto page = getJson(session, fmt::format("/notifications?from={}", from));
        if (!page) {
            return report(session, page.error());
        }
        const Json& events = page->at("notifications");
        for (const Json& event : events) {
            printEvent(session, event);
            from = event.value("number", from) + 1;
        }
        if (events.empty() || from > page->value("newest", std::uint64_t(0)) ||
            !session.console.out) {
            return kSuccess;
        }
    }
}

/// Follows the stream from one connection to the next.
class Follower {
  public:
    Follower(Session& session, std::uint64_t next) : session_(session), next_(next) {}

    int run() {
        for (auto delay = kFirstRetry;; delay = std::min(delay * 2, kLastRetry)) {
            const std::uint64_t before = next_;
            const auto ended =
                session_.client.follow(fmt::format("/notifications?follow=1&from={}", next_),
                                       [this](std::string_view line) { return take(line); });
            if (!ended && !worthRetrying(ended.error())) {
                return report(session_, ended.error());
            }
            if (!session_.console.out) {
                return kFailure;  // nobody reads any more
            }
            if (next_ != before) {
                delay = kFirstRetry;
            }
            if (!lagged_ && !told_) {
                session_.console.err << "overseerctl: the host went away; waiting for it"
                                     << std::endl;
                told_ = true;
            }
            if (!lagged_ && session_.interruption.waitFor(delay)) {
                return report(session_, {Failure::Kind::kInterrupted, {}, "interrupted"});
            }
            lagged_ = false;
        }
    }

  private:
    bool take(std::string_view line) {
        const Json event = Json::parse(line, nullptr, false);
        if (!event.is_object()) {
            return true;
        }
        if (event.contains("lagged")) {
            session_.console.err << fmt::format("overseerctl: lagged {} from #{} on\n",
                                                event.at("lagged").dump(), numberOf(event, "next"));
            lagged_ = true;
            return true;
        }
        lagged_ = false;
        told_ = false;
        printEvent(session_, event);
        next_ = event.value("number", next_) + 1;
        return static_cast<bool>(session_.console.out);
    }

    static bool worthRetrying(const Failure& failure) {
        return failure.kind == Failure::Kind::kNoHost || failure.kind == Failure::Kind::kBroken ||
               failure.code == "stopping" || failure.code == "too_many_connections";
    }

    Session& session_;
    std::uint64_t next_;
    bool lagged_ = false;  ///< the last line said so: ask again at once
    bool told_ = false;    ///< that the host is away
};

}  // namespace

int showEvents(Session& session, const EventOptions& options) {
    if (!options.follow) {
        return listEvents(session, options.from.value_or(0));
    }
    // The first question also tells whether a host is there at all.
    const auto after = numberAfterNewest(session);
    if (!after) {
        return report(session, after.error());
    }
    return Follower(session, options.from.value_or(*after)).run();
}

}  // namespace overseer::ctl
