// A sample agent: remembers what a weather station reports, and the coldest and warmest of it.
// It shows all that an agent needs: commands with and without an answer, a variable, a notification
// and settings that outlive a restart. Everything runs on the host's I/O thread.
#include <nv/base_driver.h>
#include <nv/plugin.h>
#include <nv/text.h>

#include <algorithm>
#include <functional>
#include <new>

namespace {

constexpr unsigned int kTemperatureId = 1000;

class WeatherAgent : public NVBaseAgentDriver {
  public:
    explicit WeatherAgent(void* context) : NVBaseAgentDriver(context) {}
    ~WeatherAgent() override { VmRemove(kTemperatureId); }

    using NVBaseAgentDriver::Initialize;
    RESULTX Initialize(unsigned int deviceId, nv::XmlNode::Ptr& configuration,
                       nv::XmlNode::Ptr persisted) override {
        NVBaseAgentDriver::Initialize(deviceId, configuration, persisted);
        if (!persisted || !persisted->ChildExists("temperature")) return 0;
        sky_ = persisted->GetChildData("sky");
        temperature_ = nv::ToInt(persisted->GetChildData("temperature"));
        lowest_ = nv::ToInt(persisted->GetChildData("lowest"));
        highest_ = nv::ToInt(persisted->GetChildData("highest"));
        reported_ = true;
        return 0;
    }

    void RegisterCommands() override {
        using std::placeholders::_1;
        GetUICmdDispatcher().RegisterUICmd("GET_WEATHER",
                                           std::bind(&WeatherAgent::OnCmdGetWeather, this, _1));
        GetCmdDispatcher().RegisterCmd1("REPORT_WEATHER",
                                        std::bind(&WeatherAgent::OnCmdReportWeather, this, _1));
    }

    void RegisterVariables() override {
        VmAdd(kTemperatureId, "TEMPERATURE", NVTypes::VariableType::kNumber,
              reported_ ? std::to_string(temperature_) : "", true, false,
              "Degrees outside, as last reported.");
    }

    /// What the host hands back at the next start; it asks after every command.
    nv::XmlNode::Ptr GetPersistData() override { return describe("persist_data"); }

  private:
    /// "weather" with what is known; without children before the first report.
    nv::XmlNode::Ptr OnCmdGetWeather(const ICmdMessage&) { return describe("weather"); }

    /// Parameters "temperature" (whole degrees) and "sky"; a missing one is thrown to the caller
    /// before anything has changed.
    void OnCmdReportWeather(const ICmdMessage& message) {
        const int temperature = nv::ToInt(message.GetStringParameter("temperature"));
        sky_ = message.GetStringParameter("sky");
        temperature_ = temperature;
        lowest_ = reported_ ? std::min(lowest_, temperature) : temperature;
        highest_ = reported_ ? std::max(highest_, temperature) : temperature;
        reported_ = true;
        ChangeMyVariable(kTemperatureId, std::to_string(temperature_));
        ConSendDataToUI(describe("weather_changed"));
    }

    nv::XmlNode::Ptr describe(const char* name) const {
        const nv::XmlNode::Ptr node = nv::CreateXmlNode(name, "");
        if (!reported_) return node;
        node->AddChild("temperature", std::to_string(temperature_));
        node->AddChild("sky", sky_);
        node->AddChild("lowest", std::to_string(lowest_));
        node->AddChild("highest", std::to_string(highest_));
        return node;
    }

    bool reported_ = false;
    int temperature_ = 0;
    int lowest_ = 0;
    int highest_ = 0;
    std::string sky_;
};

IHostedDriver* createAgent(void* context) {
    return new (std::nothrow) WeatherAgent(context);
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) void GetAgentName(std::vector<std::string>& names) {
    names.emplace_back("Weather");
}

__attribute__((visibility("default"))) nv::plugin::CreationFunc GetCreationFunc() {
    return &createAgent;
}

}  // extern "C"
