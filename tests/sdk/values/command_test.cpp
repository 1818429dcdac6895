#include <gtest/gtest.h>
#include <nv/command.h>

#include <string>

namespace {

class NamedMessage : public ICmdMessage {
  public:
    explicit NamedMessage(std::string name) : name_(std::move(name)) {}
    const std::string& GetName() const override { return name_; }
    std::string GetStringParameter(const std::string& name) const override {
        throw ExceptionParameterMissing(name);
    }
    bool GetBoolParameter(const std::string& name) const override {
        throw ExceptionParameterMissing(name);
    }

  private:
    std::string name_;
};

TEST(Dispatchers, TheLastRegistrationOfANameAnswers) {
    UICmdDispatcher dispatcher;
    dispatcher.RegisterUICmd("GET", [](const ICmdMessage&) { return nv::CreateXmlNode("a", ""); });
    dispatcher.RegisterUICmd("GET", [](const ICmdMessage&) { return nv::CreateXmlNode("b", ""); });
    nv::XmlNode::Ptr answer;
    EXPECT_TRUE(dispatcher.DispatchUICmd(NamedMessage("GET"), answer));
    EXPECT_TRUE(answer->IsName("b"));
    EXPECT_FALSE(dispatcher.DispatchUICmd(NamedMessage("PUT"), answer));
}

TEST(Dispatchers, WhatAHandlerThrowsReachesTheCaller) {
    CmdDispatcher dispatcher;
    dispatcher.RegisterCmd1("SET",
                            [](const ICmdMessage& message) { message.GetBoolParameter("on"); });
    EXPECT_THROW(dispatcher.DispatchCmd(NamedMessage("SET")), ExceptionParameterMissing);
    EXPECT_FALSE(dispatcher.DispatchCmd(NamedMessage("set")));
}

}  // namespace
