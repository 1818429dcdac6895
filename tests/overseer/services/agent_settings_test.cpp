#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nv/base_driver.h>

#include "fake_clock.h"
#include "services/agent_settings.h"
#include "services/history.h"
#include "services/version_document.h"
#include "state_folder.h"

namespace {

using namespace overseer;
using testing::HasSubstr;

/// A driver whose node the test sets.
class Driver : public NVBaseDriver {
  public:
    explicit Driver(CreationContext& context) : NVBaseDriver(&context) {}
    nv::XmlNode::Ptr GetPersistData() override {
        if (throws) throw std::runtime_error("broken");
        return node;
    }
    bool GetPersistState() const override { return asked; }

    nv::XmlNode::Ptr node;
    bool throws = false;
    bool asked = true;
};

/// A host that is never called.
IDriverHost& noHost() {
    static char storage[sizeof(void*)];
    return *reinterpret_cast<IDriverHost*>(storage);
}

class AgentSettingsTest : public testing::Test {
  protected:
    StateFolder folder_;
    std::unique_ptr<Database> database_ = folder_.open();
    PersistedNodes nodes_{*database_};
    AgentSettings settings_{nodes_};
    CreationContext context_{noHost(), 1};
    Driver driver_{context_};
};

TEST_F(AgentSettingsTest, GiveBackWhatTheAgentHandedOutLast) {
    driver_.node = nv::CreateXmlNode("persist_data", "");
    driver_.node->AddChild("auto_update_enabled", false);
    driver_.node->AddChild("excluded_files", " a b.nvz,<&>\r\n");
    ASSERT_TRUE(settings_.collect("agent", driver_));
    const nv::XmlNode::Ptr restored = valueOf(settings_.restore("agent"));
    EXPECT_TRUE(restored->IsName("persist_data"));
    EXPECT_EQ(restored->GetChildData("auto_update_enabled"), "false");
    EXPECT_EQ(restored->GetChildData("excluded_files"), " a b.nvz,<&>\r\n");
}

TEST_F(AgentSettingsTest, KeepWhatIsStoredWhenTheAgentHasNothingToSay) {
    driver_.node = nv::CreateXmlNode("persist_data", "x");
    ASSERT_TRUE(settings_.collect("agent", driver_));
    driver_.node = nv::CreateXmlNode("persist_data", "y");
    driver_.asked = false;
    EXPECT_TRUE(settings_.collect("agent", driver_));
    driver_.asked = true;
    driver_.node.reset();
    EXPECT_TRUE(settings_.collect("agent", driver_));
    driver_.throws = true;
    const auto thrown = settings_.collect("agent", driver_);
    ASSERT_FALSE(thrown);
    EXPECT_THAT(thrown.error().message, HasSubstr("broken"));
    EXPECT_EQ(valueOf(settings_.restore("agent"))->GetData(), "x");
}

TEST_F(AgentSettingsTest, NameWhatWouldBeLostWhenTheyCannotBeStored) {
    driver_.node = nv::CreateXmlNode("persist_data", "");
    driver_.node->AddChild("enabled", false);
    driver_.node->AddChild("excluded", "a");
    ASSERT_TRUE(settings_.collect("agent", driver_));
    EXPECT_EQ(settings_.unstored("agent", driver_), "");
    driver_.node = nv::CreateXmlNode("persist_data", "");
    driver_.node->AddChild("enabled", false);
    driver_.node->AddChild("excluded", "a,b");
    driver_.node->AddChild("more", true);
    EXPECT_EQ(settings_.unstored("agent", driver_), "excluded \"a,b\", more \"true\"");
}

TEST_F(AgentSettingsTest, ComeFromTheirCopyWhenWhatIsStoredIsTorn) {
    ASSERT_TRUE(nodes_.store("agent", "<persist_data>kept</persist_data>"));
    ASSERT_TRUE(
        execute(database_->durable(), "UPDATE persisted_nodes SET node='<persist_data>ke'"));
    EXPECT_EQ(valueOf(settings_.restore("agent"))->GetData(), "kept");
}

TEST(History, StampsStoresAndTells) {
    const StateFolder folder;
    const auto database = folder.open();
    HistoryStore store(*database);
    History history(store, std::make_shared<FakeClock>(2000));
    std::vector<std::string> heard;
    history.observe([&](const HistoryRecord& record) { heard.push_back(record.text); });
    const HistoryRecord record =
        valueOf(history.record("agent", {"text", "category", "subcategory", "Updated"}));
    EXPECT_EQ(record.time, 2'000'000);
    const auto stored = valueOf(store.last(1));
    ASSERT_EQ(stored.size(), 1u);
    EXPECT_EQ(stored[0].id, record.id);
    EXPECT_EQ(stored[0].subcategory, "subcategory");
    EXPECT_THAT(heard, testing::ElementsAre("text"));
}

TEST(VersionDocument, NamesTheHostFirst) {
    EXPECT_EQ(versionDocument("3.2.1"),
              "<versions><version name=\"Overseer\" version=\"3.2.1\"/></versions>");
}

}  // namespace
