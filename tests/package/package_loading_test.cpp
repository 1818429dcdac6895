#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nv/archive.h>

#include <algorithm>
#include <boost/filesystem/operations.hpp>

#include "agent_session.h"
#include "norvane_agent_driverupdate.h"
#include "package_builder.h"

namespace {

namespace fs = boost::filesystem;
using support::AgentSession;
using support::PackageBuilder;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kUntouched = "as it was";

std::string manifestOf(const std::string& origin, int version) {
    return "<devicedata><origin>" + origin + "</origin><version>" + std::to_string(version) +
           "</version></devicedata>";
}

std::string replaced(std::string text, const std::string& what, const std::string& by) {
    for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what)) {
        text.replace(at, what.size(), by);
    }
    return text;
}

/// What the package is, beside a zip archive with a manifest.
enum class Package { kWithManifest, kWithoutManifest, kNoArchive, kTruncated, kMissing };
enum class Checksum { kNone, kEqual, kUpperCase, kWithNewline };
enum class Outcome { kPackagesManifest, kCopysManifest, kNothing };

const std::string kBroken = "<devicedata><version>5</devicedata>";
const std::string kWithoutVersion = "<devicedata/>";

struct CopyCase {
    const char* name;
    Package package;
    std::string packageManifest;
    const char* copyManifest;  ///< null: no copy; empty: a copy without a manifest
    Checksum checksum;
    Outcome outcome;
    bool unpacks;
    /// Errors and warnings in order; "@" is the folder of packages, "#" the archive's own reason.
    std::vector<std::string> complaints;
};

const std::string kNotUnpacked =
    "log ERROR loadNVZ: One (or more) errors while extracting \"@/foo.nvz\". This driver may not "
    "function correctly.For specified details about these errors see: \"@/foo/unzip.out\"";
const std::string kNotTakenOut =
    "log ERROR loadNVZ: Failed to extract \"driver.xml\" from \"@/foo.nvz\": #";
const std::string kNoManifest = "log ERROR loadNVZ: \"@/foo/driver.xml\" does not exist";
const std::string kNotRead = "log ERROR loadNVZ: Unable to read .nvz driver: \"@/foo/driver.xml\"";
const std::string kNoLength =
    "log ERROR loadNVZ: .nvz driver file has zero length: \"@/foo/driver.xml\"";
const std::string kNoPackage = "log WARN loadNVZ: Driver path does not exist: @/foo.nvz";
const std::string kNotParsed =
    "log ERROR getDriverVersion: Failed to parse driver xml \"foo.nvz\": Start-end tags mismatch";

// clang-format off
const CopyCase kCases[] = {
    {"NoCopyYet", Package::kWithManifest, manifestOf("package", 5), nullptr, Checksum::kNone,
     Outcome::kPackagesManifest, true, {}},
    {"ChecksumEqual", Package::kWithManifest, manifestOf("package", 9), "<copy/>", Checksum::kEqual,
     Outcome::kCopysManifest, false, {}},
    {"ChecksumInUpperCase", Package::kWithManifest, manifestOf("package", 5), "5", Checksum::kUpperCase,
     Outcome::kPackagesManifest, true, {}},
    {"ChecksumWithNewline", Package::kWithManifest, manifestOf("package", 5), "5", Checksum::kWithNewline,
     Outcome::kPackagesManifest, true, {}},
    {"ChecksumOfAnotherButCopyNewer", Package::kWithManifest, manifestOf("package", 4), "5",
     Checksum::kWithNewline, Outcome::kCopysManifest, false, {}},
    {"CopyNewer", Package::kWithManifest, manifestOf("package", 4), "5", Checksum::kNone,
     Outcome::kCopysManifest, false, {}},
    {"CopyEqual", Package::kWithManifest, manifestOf("package", 5), "5", Checksum::kNone,
     Outcome::kPackagesManifest, true, {}},
    {"CopyOlder", Package::kWithManifest, manifestOf("package", 6), "5", Checksum::kNone,
     Outcome::kPackagesManifest, true, {}},
    {"CopyWithoutManifest", Package::kWithManifest, manifestOf("package", 5), "", Checksum::kNone,
     Outcome::kPackagesManifest, true, {kNoManifest}},
    {"CopyBroken", Package::kWithManifest, manifestOf("package", 5), kBroken.c_str(), Checksum::kNone,
     Outcome::kPackagesManifest, true, {kNotParsed}},
    {"CopyWithoutVersion", Package::kWithManifest, manifestOf("package", 5), kWithoutVersion.c_str(),
     Checksum::kNone, Outcome::kPackagesManifest, true, {}},
    {"PackageBroken", Package::kWithManifest, kBroken, "5", Checksum::kNone,
     Outcome::kPackagesManifest, true, {kNotParsed}},
    {"PackageWithoutVersion", Package::kWithManifest, kWithoutVersion, "5", Checksum::kNone,
     Outcome::kPackagesManifest, true, {}},
    {"PackageWithoutManifest", Package::kWithoutManifest, "", nullptr, Checksum::kNone,
     Outcome::kNothing, true, {kNotRead}},
    {"PackageWithoutManifestButCopy", Package::kWithoutManifest, "", "5", Checksum::kNone,
     Outcome::kCopysManifest, false, {kNotTakenOut}},
    {"PackageWithEmptyManifest", Package::kWithManifest, "", nullptr, Checksum::kNone,
     Outcome::kNothing, true, {kNoLength, kNotRead}},
    {"NoArchive", Package::kNoArchive, "", nullptr, Checksum::kNone,
     Outcome::kNothing, true, {kNotUnpacked, kNotRead}},
    {"NoArchiveButCopy", Package::kNoArchive, "", "5", Checksum::kWithNewline,
     Outcome::kCopysManifest, false, {kNotTakenOut}},
    {"NoArchiveAndCopyOfUnknownVersion", Package::kNoArchive, "", kWithoutVersion.c_str(),
     Checksum::kWithNewline, Outcome::kCopysManifest, true, {kNotUnpacked}},
    {"Truncated", Package::kTruncated, manifestOf("package", 5), nullptr, Checksum::kNone,
     Outcome::kNothing, true, {kNotUnpacked, kNotRead}},
    {"NoPackage", Package::kMissing, "", nullptr, Checksum::kNone,
     Outcome::kNothing, true, {kNoPackage, kNotUnpacked, kNotRead}},
    {"NoPackageButCopy", Package::kMissing, "", "5", Checksum::kEqual,
     Outcome::kCopysManifest, false, {kNoPackage, kNotTakenOut}},
};
// clang-format on

class ExtractedCopy : public testing::TestWithParam<CopyCase> {
  protected:
    ExtractedCopy() : folder(session.host.packagedFolder), copy(folder / "foo") {
        placePackage();
        placeCopy();
    }

    void placePackage() const {
        const CopyCase& given = GetParam();
        PackageBuilder builder;
        builder.member("icons/on.png", std::string(5000, 'i'));
        const bool hasManifest = given.package != Package::kWithoutManifest;
        if (hasManifest) builder.member("driver.xml", given.packageManifest);
        std::string bytes = builder.bytes();
        if (given.package == Package::kTruncated) bytes.resize(bytes.size() / 2);
        if (given.package == Package::kNoArchive) bytes = "This is no archive.";
        if (given.package != Package::kMissing) support::writeFile(folder / "foo.nvz", bytes);
    }

    void placeCopy() {
        const CopyCase& given = GetParam();
        if (given.copyManifest == nullptr) return;
        copyManifest = given.copyManifest;
        if (copyManifest == "5") copyManifest = manifestOf("copy", 5);
        fs::create_directory(copy);
        if (!copyManifest.empty()) support::writeFile(copy / "driver.xml", copyManifest);
        if (given.checksum == Checksum::kNone) return;
        std::string digest(32, '0');
        if (fs::exists(folder / "foo.nvz")) {
            digest = support::md5Of(support::readFile(folder / "foo.nvz"));
        }
        if (given.checksum == Checksum::kWithNewline) digest += '\n';
        if (given.checksum == Checksum::kUpperCase) {
            std::transform(digest.begin(), digest.end(), digest.begin(),
                           [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
        }
        support::writeFile(copy / "foo.nvz.md5", digest);
    }

    /// Errors and warnings of the agent; the host's own line about the tool is not its business.
    std::vector<std::string> complaints() const {
        std::vector<std::string> lines = session.journal.only({"log ERROR", "log WARN"});
        std::erase_if(
            lines, [](const std::string& line) { return line.starts_with("log WARN system: "); });
        return lines;
    }

    std::vector<std::string> expectedComplaints() const {
        std::string ignored;
        std::string reason;
        nv::archive::expand_zip((folder / "foo.nvz").string(), "driver.xml", ignored, reason);
        std::vector<std::string> lines = GetParam().complaints;
        for (std::string& line : lines) {
            line = replaced(replaced(line, "@", folder.string()), "#", reason);
        }
        return lines;
    }

    AgentSession session;
    fs::path folder;
    fs::path copy;
    std::string copyManifest;
};

TEST_P(ExtractedCopy, IsUsedReplacedOrKept) {
    const CopyCase& given = GetParam();
    const std::vector<std::string> expected = expectedComplaints();
    std::string xml = kUntouched;
    const RESULTX result = session.agent().loadNVZ("foo.nvz", xml);

    if (given.outcome == Outcome::kNothing) {
        EXPECT_EQ(result, -1);
        EXPECT_EQ(xml, kUntouched);
    } else {
        EXPECT_EQ(xml,
                  given.outcome == Outcome::kCopysManifest ? copyManifest : given.packageManifest);
        EXPECT_EQ(result, static_cast<RESULTX>(xml.size()));
    }
    EXPECT_EQ(complaints(), expected);
    EXPECT_EQ(session.journal.only({"log DEBUG"}).size(), given.unpacks ? 1U : 0U);
}

TEST_P(ExtractedCopy, IsReplacedAsAWholeOrLeftWithTheToolsWords) {
    const CopyCase& given = GetParam();
    const std::vector<std::string> before =
        fs::exists(copy) ? support::namesIn(copy) : std::vector<std::string>();
    std::string xml;
    session.agent().loadNVZ("foo.nvz", xml);

    std::vector<std::string> expected = before;
    const bool failed = std::count(given.complaints.begin(), given.complaints.end(), kNotUnpacked);
    if (given.unpacks && failed) {
        std::erase(expected, "foo.nvz.md5");
        expected.emplace_back("unzip.out");
    } else if (given.unpacks) {
        expected = {"icons", "unzip.out"};
        if (given.package != Package::kWithoutManifest) expected.emplace_back("driver.xml");
    }
    EXPECT_THAT(support::namesIn(copy), testing::UnorderedElementsAreArray(expected));
    // No staging folder stays behind.
    EXPECT_EQ(support::namesIn(folder).size(), fs::exists(folder / "foo.nvz") ? 2U : 1U);
}

INSTANTIATE_TEST_SUITE_P(PackageLoading, ExtractedCopy, testing::ValuesIn(kCases),
                         [](const testing::TestParamInfo<CopyCase>& test) {
                             return std::string(test.param.name);
                         });

class PackageLoading : public testing::Test {
  protected:
    fs::path packaged(const std::string& name) const {
        return fs::path(session.host.packagedFolder) / name;
    }
    fs::path plain(const std::string& name) const {
        return fs::path(session.host.plainFolder) / name;
    }
    AgentSession session;
    std::string xml = kUntouched;
};

TEST_F(PackageLoading, TellsWhatItUnpacksAndReads) {
    PackageBuilder().version(5).writeTo(packaged("foo.nvz"));
    ASSERT_GE(session.agent().loadNVZ("foo.nvz", xml), 0);

    const std::vector<std::string> lines = session.journal.take();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_THAT(lines[0], testing::MatchesRegex("log DEBUG loadNVZ: Extracting .nvz driver: \"" +
                                                packaged("foo.nvz").string() + "\" to \"" +
                                                packaged("foo").string() + "\\.[0-9a-f]{8}\""));
    EXPECT_EQ(lines[1], "log INFO Reading nvz driver: " + packaged("foo/driver.xml").string());
}

TEST_F(PackageLoading, UnpacksAPackageFromElsewhereBesideTheInstalledOnes) {
    fs::create_directory(session.root / "elsewhere");
    PackageBuilder().version(5).writeTo(session.root / "elsewhere/my driver.v2.nvz");
    EXPECT_GE(session.agent().loadNVZ((session.root / "elsewhere/my driver.v2.nvz").string(), xml),
              0);
    EXPECT_TRUE(fs::exists(packaged("my driver.v2/driver.xml")));
    EXPECT_THAT(support::namesIn(session.root / "elsewhere"), ElementsAre("my driver.v2.nvz"));
}

TEST_F(PackageLoading, TouchesNothingForANameWhoseCopyWouldBeSomebodyElses) {
    support::writeFile(packaged("precious"), "");
    PackageBuilder().version(5).writeTo(packaged("a.nvz.nvz"));
    PackageBuilder().version(5).writeTo(packaged("a.nvz"));
    for (const char* name : {"", ".", "..", "/", "//", ".nvz", "a.nvz.nvz", "sub/", "../.nvz"}) {
        EXPECT_EQ(session.agent().loadNVZ(name, xml), -1) << name;
    }
    EXPECT_EQ(xml, kUntouched);
    EXPECT_THAT(session.journal.take(), IsEmpty());
    EXPECT_THAT(support::namesIn(session.host.packagedFolder),
                ElementsAre("a.nvz", "a.nvz.nvz", "precious"));
}

TEST_F(PackageLoading, FollowsNoLinkOutOfTheCopy) {
    support::writeFile(session.root / "secret", manifestOf("elsewhere", 5));
    PackageBuilder().version(5).writeTo(packaged("foo.nvz"));
    fs::create_directory(packaged("foo"));
    fs::create_symlink(session.root / "secret", packaged("foo/driver.xml"));
    support::writeFile(packaged("foo/foo.nvz.md5"),
                       support::md5Of(support::readFile(packaged("foo.nvz"))));
    EXPECT_LT(session.agent().loadNVZ("foo.nvz", xml), 0);
    EXPECT_EQ(xml, kUntouched);
}

TEST_F(PackageLoading, WritesTheToolsWordsThroughNoLink) {
    support::writeFile(session.root / "precious", "kept");
    support::writeFile(packaged("foo.nvz"), "no archive");
    fs::create_directory(packaged("foo"));
    fs::create_symlink(session.root / "precious", packaged("foo/unzip.out"));
    EXPECT_EQ(session.agent().loadNVZ("foo.nvz", xml), -1);
    EXPECT_EQ(support::readFile(session.root / "precious"), "kept");
    EXPECT_THAT(support::readFile(packaged("foo/unzip.out")), testing::HasSubstr("foo.nvz"));
}

TEST_F(PackageLoading, LetsAnErrorOfTheFileSystemThroughAndLeavesNothingBehind) {
    // A file where the folder of packages should be, so that nothing can be made in it.
    support::writeFile(session.root / "file", "");
    session.host.packagedFolder = (session.root / "file").string();
    EXPECT_THROW(session.agent().loadNVZ("foo.nvz", xml), fs::filesystem_error);

    // A file where the copy should be, which the tool's output cannot be copied into.
    session.host.packagedFolder = session.root.makeFolder("second");
    support::writeFile(packaged("foo.nvz"), "no archive");
    support::writeFile(packaged("foo"), "");
    EXPECT_THROW(session.agent().loadNVZ("foo.nvz", xml), fs::filesystem_error);
    EXPECT_THAT(support::namesIn(session.host.packagedFolder), ElementsAre("foo", "foo.nvz"));
}

TEST_F(PackageLoading, TakesABareDriverAsItStands) {
    fs::create_directory(plain("sub"));
    for (const char* name : {"lamp.nvi", "lamp.xml", "sub/dim.nvi", "v1.2", "end."}) {
        support::writeFile(plain(name), name);
    }
    const std::pair<const char*, const char*> kNames[] = {
        {"lamp", "lamp.nvi"},     {"lamp.nvi", "lamp.nvi"},
        {"lamp.xml", "lamp.xml"}, {"/sub/dim.nvi", "sub/dim.nvi"},
        {"v1.2", "v1.2"},         {"end.", "end."}};
    for (const auto& [name, file] : kNames) {
        EXPECT_GT(session.agent().loadNVI(name, xml), 0) << name;
        EXPECT_EQ(xml, file);
        EXPECT_THAT(session.journal.take(), ElementsAre("log INFO loadNVI: Reading NVI file: " +
                                                        session.host.plainFolder + "/" + file));
    }
}

TEST_F(PackageLoading, TellsWhyABareDriverIsNotToBeHad) {
    support::writeFile(plain("empty.nvi"), "");
    fs::create_directories(plain("folder.nvi/member"));
    fs::create_symlink("nowhere", plain("dangling.nvi"));
    const std::string missing = "log ERROR loadNVI: The .nvi file does not exist: \"";
    const std::string empty = "log ERROR loadNVI: Zero-length .nvi file: \"";
    const std::pair<const char*, std::string> kFiles[] = {{"absent.nvi", missing},
                                                          {"empty.nvi", empty},
                                                          {"folder.nvi", ""},
                                                          {"dangling.nvi", missing}};
    for (const auto& [name, reason] : kFiles) {
        EXPECT_LT(session.agent().loadNVI(name, xml), 0) << name;
        std::vector<std::string> expected;
        if (!reason.empty()) expected.push_back(reason + plain(name).string() + "\"");
        EXPECT_EQ(session.journal.only({"log ERROR"}), expected) << name;
        session.journal.take();
    }
    EXPECT_EQ(xml, kUntouched);
}

}  // namespace
