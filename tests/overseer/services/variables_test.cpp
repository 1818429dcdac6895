#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "services/variables.h"

namespace {

using namespace overseer;

TEST(Variables, BelongToTheirDeviceAndGoWithIt) {
    Variables variables;
    const auto declare = [&](std::uint32_t device, unsigned int id, bool hidden) {
        variables.declare(
            device, {id, "LAST_MESSAGE", NVTypes::VariableType::kString, "-", true, hidden, ""});
    };
    declare(1, 5, false);
    declare(1, 6, true);
    declare(2, 5, false);
    variables.change(1, 5, "of one\n");
    variables.change(3, 5, "of nobody");
    ASSERT_EQ(variables.list().size(), 2u) << "one is hidden";
    EXPECT_EQ(variables.list()[0].declaration.value, "of one\n");
    EXPECT_EQ(variables.list()[1].declaration.value, "-");
    variables.removeDevice(1);
    ASSERT_EQ(variables.list().size(), 1u);
    EXPECT_EQ(variables.list()[0].deviceId, 2u);
    variables.remove(2, 5);
    EXPECT_TRUE(variables.list().empty());
}

}  // namespace
