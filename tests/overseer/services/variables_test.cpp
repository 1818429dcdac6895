#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "services/variables.h"

namespace {

using namespace overseer;
using testing::ElementsAre;

class VariablesTest : public testing::Test {
  protected:
    VariablesTest() {
        variables_.observe([this](VariableChange change, const DeviceVariable& variable) {
            static constexpr const char* kNames[] = {"added", "changed", "removed"};
            heard_.push_back(std::to_string(variable.deviceId) + " " +
                             kNames[static_cast<int>(change)] + " " + variable.declaration.value);
        });
    }
    static VariableDeclaration declaration(unsigned int id, const std::string& value,
                                           bool hidden = false) {
        return {id, "LAST_MESSAGE", NVTypes::VariableType::kString, value, true, hidden, ""};
    }

    Variables variables_;
    std::vector<std::string> heard_;
};

TEST_F(VariablesTest, AreToldOfOncePerChange) {
    variables_.declare(1, declaration(1000, "a"));
    variables_.declare(2, declaration(1000, "b"));
    EXPECT_TRUE(variables_.change(1, 1000, "c\n"));
    EXPECT_TRUE(variables_.change(1, 1000, "c\n"));
    EXPECT_TRUE(variables_.remove(2, 1000));
    EXPECT_THAT(heard_, ElementsAre("1 added a", "2 added b", "1 changed c\n", "2 removed b"));
    EXPECT_EQ(variables_.list(false)[0].declaration.value, "c\n");
}

TEST_F(VariablesTest, ThatDoNotExistAreRefused) {
    variables_.declare(1, declaration(1000, "a"));
    EXPECT_FALSE(variables_.change(2, 1000, "x"));
    EXPECT_FALSE(variables_.change(1, 1001, "x"));
    EXPECT_FALSE(variables_.remove(1, 1001));
}

TEST_F(VariablesTest, GoWithTheirDeviceAndHideFromUsersWhereTheyAreToldTo) {
    variables_.declare(1, declaration(5, "a"));
    variables_.declare(1, declaration(6, "b", true));
    variables_.declare(2, declaration(5, "c"));
    EXPECT_EQ(variables_.list(false).size(), 2u);
    EXPECT_EQ(variables_.list(true).size(), 3u);
    variables_.removeDevice(1);
    ASSERT_EQ(variables_.list(true).size(), 1u);
    EXPECT_EQ(variables_.list(true)[0].deviceId, 2u);
}

}  // namespace
