#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent_session.h"
#include "norvane_agent_driverupdate.h"

namespace {

using support::AgentSession;
using support::Offer;
using testing::ElementsAre;
using testing::IsEmpty;

/// Has the agent ask about its drivers and answers with `payload`; the journal holds the rest.
void answerWith(AgentSession& session, const std::string& payload) {
    session.start();
    session.command("EXECUTE_AUTO_UPDATE");
    session.journal.take();
    session.answer(0, 200, payload);
}

std::string refusalNode(const std::string& name, const std::string& reason) {
    return "notify <driver_update_failed><driver_name>" + name + "</driver_name><reason>" + reason +
           "</reason></driver_update_failed>";
}

std::string refusalLine(const std::string& name, const std::string& reason) {
    return "log DEBUG agent_driverupdate: Driver not updated (" + reason + ").: " + name;
}

std::string field(const std::string& name, const std::string& value) {
    return "<str name=\"" + name + "\">" + value + "</str>";
}

std::string hostOf(const std::string& version) {
    return "<versions><version name=\"Director\" version=\"1.0.0\"/><version name=\"Overseer\" "
           "version=\"" +
           version + "\"/></versions>";
}

struct Judged {
    const char* name;
    int installed;
    Offer offer;
    std::string host;
    std::string refusal;  ///< empty for an update
};

class Eligibility : public testing::TestWithParam<Judged> {};

TEST_P(Eligibility, IsJudgedByVersionMinimumAndHostInThisOrder) {
    AgentSession session;
    session.host.installedVersions["a.nvz"] = GetParam().installed;
    session.host.versionDocument = GetParam().host;
    answerWith(session, support::answerOf({GetParam().offer}));
    const std::string& reason = GetParam().refusal;
    if (reason.empty()) {
        EXPECT_EQ(session.transport->urls().back(), "https://catalogue.test/solr/a.nvz");
        EXPECT_TRUE(session.journal.only({"notify"}).empty());
        return;
    }
    // As it travels: a node's text is escaped, a log line's is not.
    const std::string escaped = reason.find('<') == std::string::npos
                                    ? reason
                                    : std::string(reason).replace(reason.find('<'), 1, "&lt;");
    EXPECT_THAT(
        session.journal.only({"log", "notify", "request"}),
        ElementsAre(refusalLine("a.nvz", reason),
                    "notify <driver_update_failed><driver_name>a.nvz</driver_name><reason>" +
                        escaped + "</reason></driver_update_failed>"));
}

const char* const kNoUpdate = "no update available";
const char* const kBelowMinimum = "version < minimum version";
const char* const kHostTooOld = "OS version < minimum OS version";

Offer offer(int version, const std::string& more = "") {
    return {"a.nvz", version, "0", more};
}

Judged hostCase(const char* name, const std::string& host, const std::string& minimum,
                const std::string& refusal) {
    return {name, 1, offer(2, field("minimumOSVersion", minimum)), host, refusal};
}

INSTANTIATE_TEST_SUITE_P(
    Answer, Eligibility,
    testing::Values(
        Judged{"Newer", 4, offer(5), hostOf("3.2.0"), ""},
        Judged{"Equal", 5, offer(5), hostOf("3.2.0"), kNoUpdate},
        Judged{"Older", 6, offer(5), hostOf("3.2.0"), kNoUpdate},
        Judged{"NewInstallation", 0, offer(1, field("minimumAutoUpdateVersion", "0")),
               hostOf("3.2.0"), ""},
        Judged{"BelowMinimum", 4, offer(9, field("minimumAutoUpdateVersion", "5")), hostOf("3.2.0"),
               kBelowMinimum},
        Judged{"AtMinimum", 5, offer(9, field("minimumAutoUpdateVersion", "5")), hostOf("3.2.0"),
               ""},
        Judged{
            "MinimumBeforeHost", 4,
            offer(9, field("minimumAutoUpdateVersion", "5") + field("minimumOSVersion", "9.9.9")),
            "", kBelowMinimum},
        Judged{"VersionBeforeMinimum", 4, offer(4, field("minimumAutoUpdateVersion", "5")),
               hostOf("3.2.0"), kNoUpdate},
        Judged{"LastFieldOfANameCounts", 4, offer(5, field("version", "3")), hostOf("3.2.0"),
               kNoUpdate},
        hostCase("HostNumericMinor", hostOf("3.2.0"), "3.10.0", kHostTooOld),
        hostCase("HostEqual", hostOf("3.10.2"), "3.10.2", ""),
        hostCase("HostPatchTooOld", hostOf("3.10.1"), "3.10.2", kHostTooOld),
        hostCase("HostMajorDecides", hostOf("4.0.0"), "3.99.99", ""),
        hostCase("MissingPartsAreZero", hostOf("3"), "3.0.1", kHostTooOld),
        hostCase("MissingMinimumParts", hostOf("3.0.0"), "3.", ""),
        hostCase("FourthPartIgnored", hostOf("3.2.1.0"), "3.2.1.9", ""),
        hostCase("EmptyPart", hostOf("3..5"), "3.0.5", ""),
        hostCase("NoOverseerEntry",
                 "<versions><version name=\"Director\" version=\"1\"/></versions>", "9.0.0", ""),
        hostCase("EmptyHostVersion", hostOf(""), "9.0.0", ""),
        hostCase("OtherRoot", "<other><version name=\"Overseer\" version=\"1.0.0\"/></other>",
                 "9.0.0", ""),
        hostCase("UnreadableHostVersion", "<versions", "1.0.0",
                 "cannot load overseer version xml")),
    [](const auto& row) { return row.param.name; });

TEST(Answer, JudgesEveryDocumentInOrderAndForgetsTheOneBefore) {
    AgentSession session;
    session.start();
    session.command("SET_EXCLUDE", {{"exclude", "held.nvz"}});
    session.host.installedVersions = {{"a.nvz", 3}, {"held.nvz", 1}};
    session.command("EXECUTE_AUTO_UPDATE");
    session.journal.take();
    session.answer(0, 200,
                   "<response><lst/><result name=\"response\" numFound=\"4\">stray"
                   "<doc><str name=\"filename\">a.nvz</str><int name=\"version\">3</int>"
                   "<str name=\"minimumOSVersion\">99.0.0</str></doc>"
                   "<doc><str name=\"filename\">held.nvz</str><int name=\"version\">9</int></doc>"
                   "<doc><int name=\"version\">1</int></doc>"
                   "<doc><str name=\"filename\">b.nvi</str></doc></result></response>");
    EXPECT_THAT(session.journal.only({"installed", "notify", "request"}),
                ElementsAre("installed version a.nvz", refusalNode("a.nvz", kNoUpdate),
                            "installed version ", "request https://catalogue.test/solr/",
                            "installed version b.nvi", refusalNode("b.nvi", kNoUpdate)));
}

struct Unusable {
    const char* name;
    std::string payload;
    std::vector<std::string> journal;
};

class UnusableAnswer : public testing::TestWithParam<Unusable> {};

TEST_P(UnusableAnswer, IsToldOnceWhereItIsAFailure) {
    AgentSession session;
    answerWith(session, GetParam().payload);
    EXPECT_EQ(session.journal.entries(), GetParam().journal);
}

const std::string kCount = "count overseer.agent.driverupdate cloud_update_SOLR_failed drivers";
const std::vector<std::string> kNotParsed{
    kCount,
    "log ERROR agent_driverupdate: Update Drivers failed. Error from SOLR: Failed to parse SOLR "
    "response",
    "notify <driver_update_failed><reason>Failed to parse SOLR response</reason>"
    "</driver_update_failed>"};
const std::vector<std::string> kNoResult{
    kCount, "log ERROR agent_driverupdate: Update Drivers failed. Error from SOLR",
    "notify <driver_update_failed><reason>SOLR Error</reason></driver_update_failed>"};

INSTANTIATE_TEST_SUITE_P(
    Answer, UnusableAnswer,
    testing::Values(Unusable{"Empty", "", kNotParsed},
                    Unusable{"CutShort", "<response><result numFound=\"1\"><doc>", kNotParsed},
                    Unusable{"NoResult", "<response><lst/></response>", kNoResult},
                    Unusable{"ErrorPage", "<html><body/></html>", kNoResult},
                    Unusable{"NothingFound", "<r><result numFound=\"0\"/></r>", {}},
                    Unusable{"NegativeCount", "<r><result numFound=\"-1\"><doc/></result></r>", {}},
                    Unusable{"NoCount", "<r><result><doc/></result></r>", {}}),
    [](const auto& row) { return row.param.name; });

TEST(HostileNames, AreRefusedBeforeTheHostIsAsked) {
    const std::vector<std::string> hostile{"../a.nvz",
                                           "/etc/passwd",
                                           "sub/a.nvz",
                                           "a/",
                                           "..",
                                           ".",
                                           ".nvz",
                                           ".hidden.nvi",
                                           ".nvz.nvz",
                                           "a.nvz.nvz",
                                           "a\"b.nvz",
                                           "\"",
                                           "a\tb.nvz",
                                           "a\nb.nvi",
                                           "a\x7f.nvz",
                                           "a\x01.nvi",
                                           std::string(247, 'n') + ".nvz"};
    for (const std::string& name : hostile) {
        SCOPED_TRACE(name);
        AgentSession session;
        std::string escaped;
        for (const char character : name) {
            const bool plain = character > ' ' || character == '\x01';
            escaped += plain ? std::string(1, character)
                             : "&#" + std::to_string(static_cast<int>(character)) + ";";
        }
        answerWith(session, support::answerOf({{escaped, 7, "0", ""}}));
        const auto entries = session.journal.entries();
        ASSERT_EQ(entries.size(), 2U);
        EXPECT_EQ(entries[0], refusalLine(name, "invalid file name"));
        EXPECT_TRUE(
            entries[1].ends_with("<reason>invalid file name</reason></driver_update_failed>"))
            << entries[1];
        EXPECT_THAT(session.downloadFolders(), IsEmpty());
    }
}

TEST(HostileNames, WhatOnlyLooksOddIsADriverLikeAnyOther) {
    const std::vector<std::string> odd{"a b.nvz",
                                       "a..nvz",
                                       "a.NVZ.nvz",
                                       "a.nvz.nvi",
                                       "nvz",
                                       "-d.nvz",
                                       "gr\xc3\xbc n.nvi",
                                       "$(x)`y`;&amp;.nvz",
                                       "a\\b.nvi",
                                       "",
                                       std::string(246, 'n') + ".nvz"};
    for (const std::string& name : odd) {
        SCOPED_TRACE(name);
        AgentSession session;
        answerWith(session, support::answerOf({{name, 7, "0", ""}}));
        EXPECT_EQ(session.transport->transfers().size(), 2U);
        EXPECT_EQ(session.downloadFolders().size(), 1U);
    }
}

TEST(HostileNames, ThatAreExcludedStaySilent) {
    AgentSession session;
    session.start();
    session.command("SET_EXCLUDE", {{"exclude", "../a.nvz"}});
    session.command("EXECUTE_AUTO_UPDATE");
    session.journal.take();
    session.answer(0, 200, support::answerOf({{"../a.nvz", 7, "0", ""}}));
    EXPECT_TRUE(session.journal.entries().empty());
}

}  // namespace
