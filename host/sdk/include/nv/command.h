#pragma once

#include <boost/function.hpp>
#include <boost/shared_ptr.hpp>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include <nv/xml_node.h>

/// A command lacks a parameter that its handler reads.
class ExceptionParameterMissing : public std::runtime_error {
  public:
    explicit ExceptionParameterMissing(const std::string& parameter);
    ~ExceptionParameterMissing() override;
};

/// One command on its way to a driver: named parameters.
class ICmdMessage {
  public:
    virtual ~ICmdMessage() = default;
    virtual const std::string& GetName() const = 0;
    /// @throws ExceptionParameterMissing when there is no such parameter
    virtual std::string GetStringParameter(const std::string& name) const = 0;
    /// True when the text begins with 1, t, T, y or Y.
    /// @throws ExceptionParameterMissing when there is no such parameter
    virtual bool GetBoolParameter(const std::string& name) const = 0;
};

/// Commands without an answer, by name. Registering a name again replaces its handler.
class CmdDispatcher {
  public:
    using Handler = boost::function<void(const ICmdMessage&)>;
    void RegisterCmd1(const std::string& name, Handler handler);
    /// Runs the handler of the message's name; false when there is none. Lets its exceptions
    /// through.
    bool DispatchCmd(const ICmdMessage& message);
    std::vector<std::string> GetCmdNames() const;

  private:
    std::map<std::string, Handler> handlers_;
};

/// Commands that answer with an XML node, by name. Registering a name again replaces its handler.
class UICmdDispatcher {
  public:
    using Handler = boost::function<nv::XmlNode::Ptr(const ICmdMessage&)>;
    void RegisterUICmd(const std::string& name, Handler handler);
    /// Runs the handler of the message's name into `answer`; false when there is none. Lets its
    /// exceptions through.
    bool DispatchUICmd(const ICmdMessage& message, nv::XmlNode::Ptr& answer);
    std::vector<std::string> GetUICmdNames() const;

  private:
    std::map<std::string, Handler> handlers_;
};
