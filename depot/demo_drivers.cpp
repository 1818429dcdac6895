// The sample drivers. Devices, makers and numbers are invented. Each outcome that an update can
// have comes up at least once.
#include "depot/demo_drivers.h"

namespace depot {
namespace {

constexpr auto kUpdated = DemoOutcome::kUpdated;
constexpr auto kHeldBack = DemoOutcome::kHeldBack;
constexpr auto kCurrent = DemoOutcome::kCurrent;
constexpr auto kNotOffered = DemoOutcome::kNotOffered;

const char* const kForcedToo = "{\"forceAutoUpdate\": true}\n";

std::vector<DemoDriver> lightsAndShades() {
    return {
        {"dimmer_keypad_wireless.nvz",
         "Wireless Keypad Dimmer",
         "LW-D600",
         "Lumenwerk",
         12,
         14,
         kUpdated,
         kUpdated,
         {{"light", "Dimmer"}, {"keypad", "Keypad"}},
         {{"dimmable", "true"}, {"max_watts", "600"}, {"ramp_rate_ms", "250"}},
         false,
         kForcedToo},
        {"ceiling fan 3-speed.nvz",
         "Ceiling Fan, Three Speeds",
         "AF-3",
         "Aeolia",
         4,
         5,
         kUpdated,
         kNotOffered,
         {{"fan", "Fan"}, {"light", "Fan Light"}},
         {{"speeds", "3"}, {"reversible", "true"}},
         false,
         std::nullopt},
        {"Wohnzimmer Rollladen größe M.nvz",
         "Rollladen Größe M",
         "RL-M",
         "Schattenspiel",
         3,
         4,
         kUpdated,
         kNotOffered,
         {{"blind", "Rollladen"}},
         {{"has_level", "true"}, {"travel_seconds", "22"}},
         false,
         "{\"minimumOSVersion\": \"1.0.0\"}\n"},
        {"照明コントローラー.nvz",
         "照明コントローラー",
         "HK-16",
         "Hikari Koubou",
         1,
         2,
         kUpdated,
         kNotOffered,
         {{"light", "照明"}},
         {{"channels", "16"}},
         false,
         std::nullopt},
        {"Café Lampe & Co.nvi",
         "Café Lampe & Co",
         "CL-2",
         "Atelier Lumière",
         6,
         7,
         kUpdated,
         kNotOffered,
         {{"light", "Lampe"}},
         {{"dimmable", "false"}},
         false,
         std::nullopt},
    };
}

std::vector<DemoDriver> climateAndGarden() {
    return {
        {"thermostat_comfort.nvz",
         "Comfort Thermostat",
         "CT-80",
         "Hearthline",
         31,
         40,
         kUpdated,
         kNotOffered,
         {{"thermostat", "Thermostat"}, {"sensor", "Room Temperature"}},
         {{"can_heat", "true"}, {"can_cool", "true"}, {"setpoint_step", "0.5"}},
         false,
         "{\"minimumAutoUpdateVersion\": 30, \"minimumOSVersion\": \"1.0.0\"}\n"},
        {"radiator_valve+boost.nvz",
         "Radiator Valve with Boost",
         "RV-1B",
         "Hearthline",
         8,
         9,
         kUpdated,
         kNotOffered,
         {{"thermostat", "Valve"}},
         {{"boost_minutes", "15"}},
         false,
         std::nullopt},
        {"pool_pump.nvi",
         "Variable Speed Pool Pump",
         "PP-VS",
         "Bluewell",
         5,
         8,
         kUpdated,
         kNotOffered,
         {{"pump", "Pool Pump"}},
         {{"speeds", "8"}},
         false,
         std::nullopt},
        {"irrigation_8_zone.nvi",
         "Irrigation, Eight Zones",
         "IZ-8",
         "Verdant Works",
         15,
         16,
         kUpdated,
         kNotOffered,
         {{"irrigation", "Zones"}},
         {{"zones", "8"}},
         false,
         std::nullopt},
        {"energy_meter_3p.nvz",
         "Energy Meter, Three Phases",
         "EM-3P",
         "Kilowright",
         5,
         9,
         kHeldBack,
         kNotOffered,
         {{"meter", "Energy"}},
         {{"phases", "3"}},
         false,
         "{\"minimumAutoUpdateVersion\": 8}\n"},
    };
}

std::vector<DemoDriver> picturesAndSound() {
    return {
        {"television_panorama_65.nvz",
         "Panorama 65 Television",
         "PAN-65",
         "Vistagraph",
         7,
         9,
         kUpdated,
         kNotOffered,
         {{"tv", "Television"}},
         {{"has_tuner", "true"}, {"hdmi_inputs", "4"}, {"wake_on_network", "true"}},
         false,
         std::nullopt},
        {"av_receiver_symphony.nvz",
         "Symphony Receiver",
         "SYM-11",
         "Audessa",
         101,
         110,
         kUpdated,
         kNotOffered,
         {{"receiver", "Receiver"}, {"tuner", "Radio"}},
         {{"zones", "3"}},
         true,
         std::nullopt},
        {"media_player_aurora.nvz",
         "Aurora Media Player",
         "AUR-4",
         "Vistagraph",
         2,
         3,
         kHeldBack,
         kNotOffered,
         {{"media_player", "Player"}},
         {{"has_discrete_power", "true"}},
         true,
         "{\"minimumOSVersion\": \"99.0.0\"}\n"},
        {"legacy_infrared_blaster.nvi",
         "Infrared Blaster",
         "IR-1",
         "Vistagraph",
         3,
         std::nullopt,
         kNotOffered,
         kNotOffered,
         {{"infrared", "Blaster"}},
         {{"outputs", "1"}},
         false,
         std::nullopt},
    };
}

std::vector<DemoDriver> safety() {
    return {
        {"door_lock_bastion.nvz",
         "Bastion Door Lock",
         "BL-200",
         "Bastion & Key",
         5,
         6,
         kUpdated,
         kUpdated,
         {{"lock", "Lock"}, {"contact", "Door Contact"}},
         {{"has_keypad", "true"}, {"users", "30"}},
         false,
         kForcedToo},
        {"garage_door_relay.nvi",
         "Garage Door Relay",
         "GR-1",
         "Bastion & Key",
         2,
         3,
         kUpdated,
         kNotOffered,
         {{"relay", "Door"}, {"contact", "Open"}},
         {{"pulse_ms", "500"}},
         false,
         std::nullopt},
        {"motion_sensor_pir.nvi",
         "Motion Sensor",
         "MS-P",
         "Sentrel",
         10,
         11,
         kUpdated,
         kNotOffered,
         {{"motion", "Motion"}},
         {{"battery", "true"}},
         false,
         std::nullopt},
        {"window_sensor.nvi",
         "Window Sensor",
         "WS-2",
         "Sentrel",
         6,
         6,
         kCurrent,
         kNotOffered,
         {{"contact", "Window"}},
         {{"battery", "true"}},
         false,
         std::nullopt},
        {"security_panel_sentinel.nvz",
         "Sentinel Security Panel",
         "SP-64",
         "Sentrel",
         20,
         22,
         kUpdated,
         kNotOffered,
         {{"security_panel", "Panel"}, {"partition", "House"}},
         {{"partitions", "4"}, {"zones", "64"}},
         true,
         std::nullopt},
        {"doorbell_camera.nvz",
         "Doorbell with Camera",
         "DC-1",
         "Sentrel",
         9,
         12,
         kUpdated,
         kNotOffered,
         {{"camera", "Camera"}, {"doorbell", "Button"}},
         {{"resolution", "1920x1080"}, {"snapshot", "true"}},
         false,
         std::nullopt},
    };
}

std::vector<DemoDriver> systemSide() {
    return {
        {"gateway_bridge.nvz",
         "Radio Gateway Bridge",
         "GB-868",
         "Lumenwerk",
         1,
         2,
         kNotOffered,
         kUpdated,
         {{"bridge", "Gateway"}},
         {{"channels", "2"}},
         false,
         "{\"autoUpdate\": false, \"forceAutoUpdate\": true}\n"},
        {"weather_agent.nvz",
         "Weather Agent",
         "WA",
         "Lumenwerk",
         std::nullopt,
         3,
         kNotOffered,
         kNotOffered,
         {{"weather", "Weather"}},
         {{"forecast_days", "5"}},
         false,
         "{\"agent\": true}\n"},
    };
}

}  // namespace

std::string outcomeText(DemoOutcome outcome) {
    switch (outcome) {
        case DemoOutcome::kUpdated:
            return "updated";
        case DemoOutcome::kCurrent:
            return "current";
        case DemoOutcome::kHeldBack:
            return "held back";
        case DemoOutcome::kNotOffered:
            return "not offered";
    }
    return "";
}

std::vector<DemoDriver> demoDrivers() {
    std::vector<DemoDriver> all;
    for (auto group :
         {lightsAndShades(), climateAndGarden(), picturesAndSound(), safety(), systemSide()}) {
        for (DemoDriver& driver : group) all.push_back(std::move(driver));
    }
    return all;
}

}  // namespace depot
