// Plug-ins built at another time call through slot numbers: the order is part of the interface.
#include <gtest/gtest.h>
#include <nv/driver_operations.h>

#include <cstring>

namespace {

/// Slot in the virtual table, as the Itanium ABI stores it in a pointer to a virtual member: one
/// more than its offset in bytes. The two destructors hold slots 0 and 1.
template <typename Member>
std::size_t slotOf(Member member) {
    std::ptrdiff_t words[2] = {};
    static_assert(sizeof member == sizeof words);
    std::memcpy(words, &member, sizeof words);
    EXPECT_EQ(words[0] % 2, 1) << "not virtual";
    EXPECT_EQ(words[1], 0) << "not of the primary interface";
    return static_cast<std::size_t>(words[0] - 1) / sizeof(void*);
}

TEST(Slots, OfTheDriverOperationsStayWhereTheyAre) {
    using Operations = IDriverOperations;
    using Node = nv::XmlNode::Ptr;
    std::size_t slot = 2;
    EXPECT_EQ(slotOf(&Operations::LateInitialize), slot++);
    EXPECT_EQ(slotOf<RESULTX (Operations::*)(unsigned int, Node&)>(&Operations::Initialize),
              slot++);
    EXPECT_EQ(slotOf(&Operations::ResetSettings), slot++);
    EXPECT_EQ(slotOf(&Operations::OnProjectLoaded), slot++);
    EXPECT_EQ(slotOf(&Operations::OnProjectClosing), slot++);
    EXPECT_EQ(slotOf(&Operations::GetPersistData), slot++);
    EXPECT_EQ(slotOf(&Operations::GetPersistState), slot++);
    EXPECT_EQ(slotOf(&Operations::GetDriverType), slot++);
    EXPECT_EQ(slotOf(&Operations::GetAgent), slot++);
    EXPECT_EQ(slotOf(&Operations::GetDevice), slot++);
    EXPECT_EQ(slotOf(&Operations::UsbSerialDeviceOnline), slot++);
    EXPECT_EQ(slotOf(&Operations::UsbSerialDeviceOffline), slot++);
    EXPECT_EQ(slotOf(&Operations::UsbSerialDeviceRemoved), slot++);
    EXPECT_EQ(slotOf(&Operations::OnVariableChanged), slot++);
    EXPECT_EQ(slotOf(&Operations::OnVariableAdded), slot++);
    EXPECT_EQ(slotOf(&Operations::OnVariableRemoved), slot++);
    EXPECT_EQ(slotOf(&Operations::OnDeviceAdded), slot++);
    EXPECT_EQ(slotOf(&Operations::OnDeviceRemoved), slot++);
    EXPECT_EQ(slotOf(&Operations::OnConnectionsChanged), slot++);
    EXPECT_EQ(slotOf(&Operations::OnNetworkBound), slot++);
    EXPECT_EQ(slotOf(&Operations::OnSchedulerEvent), slot++);
    EXPECT_EQ(slotOf(&Operations::OnSchedulerEventRemoved), slot++);
    EXPECT_EQ(slotOf(&Operations::OnNetworkBindingChanged), slot++);
    EXPECT_EQ(slotOf<RESULTX (Operations::*)(unsigned int, Node&, Node)>(&Operations::Initialize),
              slot++);
    EXPECT_EQ(slotOf(&Operations::RegisterCommands), slot++);
    EXPECT_EQ(slotOf(&Operations::RegisterConditionals), slot++);
    EXPECT_EQ(slotOf(&Operations::RegisterVariables), slot++);
    EXPECT_EQ(slotOf(&IHostedDriver::GetOperations), 2U);
}

}  // namespace
