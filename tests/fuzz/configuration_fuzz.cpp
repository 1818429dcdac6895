// overseer.conf, any bytes: it is refused with a line that names the file, or gives settings that
// are within their bounds.
#include "runtime/configuration.h"

#include "fuzz_input.h"
#include "temporary_folder.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const support::TemporaryFolder folder;
    const std::string root = folder.path().string();
    support::writeFile(folder / "overseer.conf", textOf(data, size));
    const char* const arguments[] = {"overseer", "--root", root.c_str()};
    const auto invocation = overseer::readInvocation(3, arguments);
    if (!invocation) {
        require(!invocation.error().message.empty());
        return 0;
    }
    const overseer::Configuration& settings = invocation->configuration;
    require(invocation->action == overseer::Invocation::Action::kRun && settings.root == root);
    require(settings.transfers >= 1 && settings.transfers <= 64);
    require(settings.lowSpeedRate >= 0 && settings.lowSpeedTime >= 1);
    require(settings.commandTimeLimit >= 1 && settings.commandTimeLimit <= 86400);
    require(overseer::readVersion(settings.version).has_value());
    require(settings.catalogue.empty() || !settings.catalogue.ends_with('/'));
    require(settings.statsd.empty() || overseer::readHostAndPort(settings.statsd).has_value());
    return 0;
}
