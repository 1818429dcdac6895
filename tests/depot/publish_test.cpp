// Releases against a Solr that fails where it is told to, over real HTTP and real folders.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "depot/publish/answer_cache.h"
#include "depot/publish/publisher.h"
#include "depot_test_kit.h"
#include "fake_solr.h"

namespace depot {
namespace {

using testing::bareDriver;
using ::testing::ElementsAre;
using testing::FakeSolr;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Pair;
using testing::TemporaryFolder;
namespace fs = std::filesystem;
using Kind = PublishOutcome::Kind;
using Versions = std::map<std::string, int>;

constexpr SolrLimits kShort{std::chrono::seconds(10), std::chrono::milliseconds(300),
                            std::chrono::milliseconds(200)};

/// A Solr, a folder of files and a folder of packages; a publisher for each act, as a person would
/// run the program again.
class PublishTest : public ::testing::TestWithParam<FakeSolr::Kind> {
  protected:
    /// Two packages, one of them an agent's.
    void writePackages(int version) {
        packages_.write("lamp.nvi", bareDriver(version));
        packages_.write("my agent.nvi", bareDriver(version, "Agent"));
        packages_.write("my agent.nvi.json", R"({"agent": true, "minimumOSVersion": "3.2.0"})");
    }

    std::vector<CheckedPackage> checked() {
        std::vector<CheckedPackage> packages;
        const auto paths = packagesAt(packages_.path());
        for (const std::string& path : *paths) packages.push_back(checkPackage(path));
        return packages;
    }

    template <typename Act>
    auto withPublisher(Publisher::Settings settings, Act act) {
        settings.settle = std::chrono::milliseconds(0);
        SolrClient client(solr_.url(), "");
        ReleaseFolder folder(files());
        EXPECT_TRUE(folder.lock());
        auto site = SolrSite::open(client, "catalogue", kShort);
        EXPECT_TRUE(site);
        Publisher publisher(folder, **site, std::move(settings));
        return act(publisher);
    }

    Result<PublishOutcome> publish(Publisher::Settings settings = {}) {
        return withPublisher(std::move(settings),
                             [this](Publisher& each) { return each.publish(checked()); });
    }

    Result<std::string> rollback(const std::optional<std::string>& id = std::nullopt) {
        return withPublisher({}, [&](Publisher& each) { return each.rollback(id); });
    }

    std::string published(int version, Publisher::Settings settings = {}) {
        writePackages(version);
        const auto outcome = publish(std::move(settings));
        EXPECT_TRUE(outcome) << outcome.error().message;
        EXPECT_EQ(outcome->kind, Kind::kPublished);
        return outcome->release;
    }

    std::string files() const { return work_.path("files"); }
    std::string current() const {
        std::error_code error;
        return fs::read_symlink(files() + "/current", error).filename().string();
    }
    std::vector<std::string> releaseFolders() const {
        std::vector<std::string> names;
        for (const auto& each : fs::directory_iterator(files() + "/releases"))
            names.push_back(each.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }

    /// Files and both collections are those of the release with that version, and nothing else is
    /// left lying about but these releases.
    void expectServed(int version, const std::vector<std::string>& releases) {
        EXPECT_EQ(solr_.versions("drivers"),
                  (Versions{{"lamp.nvi", version}, {"my agent.nvi", version}}));
        EXPECT_EQ(solr_.versions("agents"), (Versions{{"my agent.nvi", version}}));
        std::ifstream file(files() + "/current/lamp.nvi");
        EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), bareDriver(version));
        EXPECT_EQ(releaseFolders(), releases);
        EXPECT_EQ(solr_.collections().size(), 2 + 2 * releases.size());
    }

    FakeSolr solr_{GetParam()};
    TemporaryFolder work_;
    TemporaryFolder packages_;
};

INSTANTIATE_TEST_SUITE_P(Solr, PublishTest,
                         ::testing::Values(FakeSolr::Kind::kCluster, FakeSolr::Kind::kSingle),
                         [](const auto& each) {
                             return each.param == FakeSolr::Kind::kCluster ? "Cluster" : "Single";
                         });

TEST_P(PublishTest, PutsReleasesOutAndChangesNothingTheSecondTime) {
    const std::string first = published(1);
    expectServed(1, {first});
    const int changes = solr_.changes();
    const auto again = publish();
    ASSERT_TRUE(again) << again.error().message;
    EXPECT_EQ(again->kind, Kind::kUnchanged);
    EXPECT_EQ(again->release, first);
    EXPECT_EQ(solr_.changes(), changes);
    expectServed(1, {first});

    const std::string second = published(2);
    expectServed(2, {first, second});
}

TEST_P(PublishTest, GivesEveryReleaseFilesOfANewTime) {
    const std::string first = published(1);
    const std::string second = published(2);
    const auto timeOf = [&](const std::string& release) {
        struct stat status {};
        ::stat((files() + "/releases/" + release + "/lamp.nvi").c_str(), &status);
        return status.st_mtim.tv_sec;
    };
    // Both were published within a second or so.
    EXPECT_LT(timeOf(first), timeOf(second));
}

TEST_P(PublishTest, LeavesWhatIsServedWhenAnyStepFails) {
    const bool cluster = GetParam() == FakeSolr::Kind::kCluster;
    const std::string first = published(1);
    const std::string switching = cluster ? "action=CREATEALIAS" : "action=SWAP";
    const std::string drivers = switching + (cluster ? "&name=drivers" : "&core=drivers");
    const std::string agents = switching + (cluster ? "&name=agents" : "&core=agents");
    struct Case {
        std::string call;
        FakeSolr::Fault fault;
        std::string step;
    };
    using Fault = FakeSolr::Fault;
    const std::vector<Case> cases{
        {"action=CREATE&name=drivers", Fault::kError, "making collection drivers"},
        {"action=CREATE&name=drivers", Fault::kNoEffect, "making collection drivers"},
        {"action=CREATE&name=agents", Fault::kError, "No space left on device"},
        {"/update", Fault::kError, "loading collection drivers"},
        {"commit=true", Fault::kError, "loading collection drivers"},
        {"commit=true", Fault::kNoEffect, "has 0 documents instead of 2"},
        {"/update?wt", Fault::kLoseOne, "has 1 documents instead of 2"},
        {"/update?wt", Fault::kOtherType, "has other fields than were published"},
        {"/select", Fault::kHtml, "comparing collection drivers"},
        {"/select", Fault::kNested, "comparing collection drivers"},
        {drivers, Fault::kError, "switching drivers"},
        {drivers, Fault::kNoEffect, "switching drivers"},
        {agents, Fault::kError, "switching agents"},
        {agents, Fault::kNoEffect, "switching agents"},
    };
    writePackages(2);
    for (const Case& each : cases) {
        SCOPED_TRACE(each.call + " " + each.step);
        solr_.breakCalls(each.call, each.fault);
        const auto outcome = publish();
        ASSERT_FALSE(outcome);
        EXPECT_THAT(outcome.error().message, HasSubstr(each.step));
        EXPECT_THAT(outcome.error().message, HasSubstr("what is served is " + first));
        EXPECT_EQ(current(), first);
        solr_.repair();
        expectServed(1, {first});
    }
    const std::string second = published(2);
    expectServed(2, {first, second});
}

TEST_P(PublishTest, GivesUpWhatIsInterruptedBeforeTheSwitch) {
    const std::string first = published(1);
    writePackages(2);
    for (const std::string step :
         {"copying files", "making collection agents", "loading agents", "switching"}) {
        SCOPED_TRACE(step);
        bool interrupted = false;
        Publisher::Settings settings;
        settings.progress = [&](const std::string& text) {
            interrupted = interrupted || text.starts_with(step);
        };
        settings.interrupted = [&] { return interrupted; };
        const auto outcome = publish(settings);
        ASSERT_FALSE(outcome);
        EXPECT_THAT(outcome.error().message, HasSubstr(": interrupted; release "));
        expectServed(1, {first});
    }
}

TEST_P(PublishTest, PublishesAnewWhatIsServedButNotWhole) {
    const std::string first = published(1);
    fs::remove(files() + "/current/lamp.nvi");
    const std::string second = published(1);
    EXPECT_TRUE(fs::exists(files() + "/current/lamp.nvi"));
    fs::remove(files() + "/current/.release.json");
    published(1);
    EXPECT_EQ(current() > second, true);
    EXPECT_TRUE(fs::exists(files() + "/current/.release.json"));
}

TEST_P(PublishTest, BelievesWhatItSeesRatherThanAnErrorThatComesAfterTheDeed) {
    const bool cluster = GetParam() == FakeSolr::Kind::kCluster;
    solr_.breakCalls(cluster ? "action=CREATE" : "action=SWAP", FakeSolr::Fault::kLateError);
    const std::string first = published(1);
    expectServed(1, {first});
}

TEST_P(PublishTest, NoticesAPackageThatChangesAfterItWasChecked) {
    const std::string first = published(1);
    writePackages(2);
    const auto outcome = withPublisher({}, [this](Publisher& publisher) {
        auto packages = checked();
        packages_.write("lamp.nvi", bareDriver(3));
        return publisher.publish(std::move(packages));
    });
    ASSERT_FALSE(outcome);
    EXPECT_THAT(outcome.error().message, HasSubstr("lamp.nvi: was changed after it was checked"));
    expectServed(1, {first});
}

TEST_P(PublishTest, GoesBackAndForthBetweenReleases) {
    const std::string first = published(1);
    const std::string second = published(2);
    ASSERT_EQ(rollback().value_or("failed"), first);
    expectServed(1, {first, second});
    ASSERT_EQ(rollback(second).value_or("failed"), second);
    expectServed(2, {first, second});
    EXPECT_THAT(rollback("20200101-000000-00000000").error().message, HasSubstr("no release"));
}

TEST_P(PublishTest, NeverSwitchesToAReleaseThatIsNotWhole) {
    const std::string first = published(1);
    const std::string second = published(2);
    const std::string folder = files() + "/releases/" + first;
    fs::rename(folder + "/lamp.nvi", folder + "/.away");
    EXPECT_THAT(rollback().error().message, HasSubstr("lamp.nvi"));
    expectServed(2, {first, second});
    std::ofstream(folder + "/lamp.nvi") << bareDriver(2);
    EXPECT_THAT(rollback().error().message, HasSubstr("not the file that was published"));
    fs::rename(folder + "/.away", folder + "/lamp.nvi");
    EXPECT_EQ(rollback().value_or("failed"), first);
}

TEST_P(PublishTest, RefusesOlderVersionsUnlessTheyAreMeant) {
    const std::string first = published(2);
    writePackages(1);
    const auto refused = publish();
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->kind, Kind::kRefused);
    expectServed(2, {first});
    Publisher::Settings meant;
    meant.allowOlder = true;
    const std::string second = published(1, meant);
    expectServed(1, {first, second});
}

TEST_P(PublishTest, ADryRunTouchesNothing) {
    writePackages(1);
    Publisher::Settings dry;
    dry.dryRun = true;
    const auto outcome = publish(dry);
    ASSERT_TRUE(outcome);
    EXPECT_EQ(outcome->kind, Kind::kPlanned);
    EXPECT_EQ(outcome->added, 2U);
    EXPECT_EQ(solr_.changes(), 0);
    EXPECT_THAT(releaseFolders(), IsEmpty());
}

TEST_P(PublishTest, KeepsAsManyFormerReleasesAsItIsTold) {
    published(1);
    const std::string second = published(2);
    Publisher::Settings settings;
    settings.keep = 1;
    const std::string third = published(3, settings);
    expectServed(3, {second, third});
}

TEST_P(PublishTest, AfterARollbackTheOneToGoBackToIsWhatWasServed) {
    const std::string good = published(1);
    published(2);
    ASSERT_EQ(rollback().value_or("failed"), good);
    Publisher::Settings settings;
    settings.keep = 1;
    const std::string third = published(3, settings);
    expectServed(3, {good, third});
    EXPECT_EQ(rollback().value_or("failed"), good);
}

TEST_P(PublishTest, ClearsAwayWhatAKilledRunLeft) {
    const std::string first = published(1);
    const std::string killed = "20990101-000000-0badcafe";
    fs::create_directories(files() + "/releases/" + killed);
    std::ofstream(files() + "/releases/" + killed + "/lamp.nvi") << "half";
    withPublisher({}, [&](Publisher&) {
        SolrClient client(solr_.url(), "");
        return (*SolrSite::open(client, "catalogue", kShort))->create("drivers_" + killed);
    });
    const auto states = withPublisher({}, [](Publisher& each) { return each.releases(); });
    ASSERT_TRUE(states);
    ASSERT_EQ(states->size(), 2U);
    EXPECT_TRUE(states->front().served);
    EXPECT_FALSE(states->back().complete);
    const std::string second = published(2);
    EXPECT_LT(killed, second) << "ids ascend whatever the clock says";
    expectServed(2, {first, second});
}

TEST_P(PublishTest, LeavesAnotherFoldersReleasesAlone) {
    published(1);
    published(2);
    const auto collections = solr_.collections();
    fs::rename(files(), work_.path("elsewhere"));
    published(3);
    EXPECT_THAT(solr_.collections(), ::testing::IsSupersetOf(collections));
}

TEST(PublisherTest, TouchesNoNodeWhileACopyIsDown) {
    FakeSolr solr(FakeSolr::Kind::kCluster);
    solr.setActive(false);
    TemporaryFolder work;
    SolrClient client(solr.url(), "");
    const auto site = SolrSite::open(client, "catalogue", kShort);
    ASSERT_TRUE(site);
    ReleaseFolder folder(work.path());
    Publisher publisher(folder, **site, {});
    const auto outcome = publisher.publish({});
    ASSERT_FALSE(outcome);
    EXPECT_THAT(outcome.error().message, HasSubstr("nothing was touched"));
    EXPECT_THAT(outcome.error().message, HasSubstr("is down instead of active"));
    EXPECT_EQ(solr.changes(), 0);
}

TEST(PublisherTest, SaysWhatIsAtAUrlThatIsNoSolr) {
    FakeSolr solr(FakeSolr::Kind::kCluster);
    const auto reason = [](const std::string& url) {
        SolrClient client(url, "");
        const auto site = SolrSite::open(client, "catalogue", kShort);
        return site ? std::string("opened") : site.error().message;
    };
    solr.breakCalls("system", FakeSolr::Fault::kHtml);
    EXPECT_THAT(reason(solr.url()), HasSubstr("does not answer in JSON; is it a Solr?"));
    solr.breakCalls("system", FakeSolr::Fault::kNested);
    EXPECT_THAT(reason(solr.url()), HasSubstr("does not answer in JSON"));
    solr.breakCalls("system", FakeSolr::Fault::kNoEffect);
    EXPECT_THAT(reason(solr.url()), HasSubstr("names no mode"));
    EXPECT_THAT(reason("http://127.0.0.1:1/solr"), HasSubstr("http://127.0.0.1:1/solr/admin"));
    EXPECT_THAT(reason("file:///etc/passwd"), HasSubstr("not supported"));
}

TEST(PublisherTest, OnePublisherWorksInAFolderAtATime) {
    TemporaryFolder work;
    ReleaseFolder first(work.path());
    ASSERT_TRUE(first.lock());
    ReleaseFolder second(work.path());
    EXPECT_THAT(second.lock().error().message, HasSubstr("another publisher"));
}

TEST(AnswerCacheTest, LosesCachedAnswersAndNothingElse) {
    TemporaryFolder cache;
    const std::string answer = "0123456789abcdef0123456789abcabf";
    fs::create_directories(cache.path("f/ab"));
    cache.write("f/ab/" + answer, "old");
    cache.write("f/notes.txt", "mine");
    cache.write("f/" + answer.substr(0, 31) + "0", "mine");
    TemporaryFolder elsewhere;
    elsewhere.write(answer, "mine");
    fs::create_directory_symlink(elsewhere.path(), cache.path("link"));
    ASSERT_TRUE(purgeAnswerCache(cache.path()));
    EXPECT_FALSE(fs::exists(cache.path("f/ab/" + answer)));
    EXPECT_TRUE(fs::exists(cache.path("f/notes.txt")));
    EXPECT_TRUE(fs::exists(cache.path("f/" + answer.substr(0, 31) + "0")));
    EXPECT_TRUE(fs::exists(elsewhere.path(answer)));
    EXPECT_FALSE(purgeAnswerCache(cache.path("none")));
}

}  // namespace
}  // namespace depot
