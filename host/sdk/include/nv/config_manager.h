#pragma once

#include <string>

/// The controller's folders, as absolute paths without a trailing slash.
class IConfigManager {
  public:
    virtual ~IConfigManager() = default;
    /// Driver packages (`.nvz`) and their unpacked copies.
    virtual std::string GetPackagedDriverFolder() const = 0;
    /// Bare drivers (`.nvi`).
    virtual std::string GetPlainDriverFolder() const = 0;
    /// Configuration files, "proxy_restart.xml" among them.
    virtual std::string GetConfigurationFolder() const = 0;
    /// Certificates, "ca-bundle.crt" among them.
    virtual std::string GetCertificateFolder() const = 0;
};
