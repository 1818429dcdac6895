// The plug-in as the host meets it: loaded from its file, used through its two exports.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nv/plugin.h>

#include <cstdio>
#include <fstream>
#include <iterator>

#include "agent_session.h"
#include "norvane_agent_driverupdate.h"

namespace {

using support::AgentSession;
using testing::ElementsAre;

struct CloseLibrary {
    void operator()(void* handle) const { dlclose(handle); }
};
using Library = std::unique_ptr<void, CloseLibrary>;

Library load() {
    Library library(dlopen(AGENT_PLUGIN, RTLD_NOW | RTLD_LOCAL));
    EXPECT_TRUE(library) << dlerror();
    return library;
}

template <typename Function>
Function exported(const Library& library, const char* name) {
    return reinterpret_cast<Function>(dlsym(library.get(), name));
}

TEST(Plugin, ExportsItsTwoEntryPointsAndNothingElse) {
    const std::unique_ptr<FILE, int (*)(FILE*)> output(
        popen("nm -D --defined-only '" AGENT_PLUGIN "'", "r"), &pclose);
    std::vector<std::string> names;
    char line[512];
    while (std::fgets(line, sizeof line, output.get()) != nullptr) {
        const std::string text(line);
        names.push_back(text.substr(text.find_last_of(' ') + 1));
    }
    EXPECT_THAT(names, ElementsAre("GetAgentName\n", "GetCreationFunc\n"));
}

TEST(Plugin, AppendsItsNameToThoseThatAreThere) {
    const Library library = load();
    std::vector<std::string> names{"Other"};
    exported<nv::plugin::GetAgentNameFunc>(library, nv::plugin::kGetAgentName)(names);
    EXPECT_THAT(names, ElementsAre("Other", "Driver Update"));
}

TEST(Plugin, HandsOutASecondaryInterfaceThroughWhichTheHostDestroysIt) {
    const Library library = load();
    AgentSession session;
    CreationContext context{session.host, support::RecordingHost::kDeviceId};
    IHostedDriver* driver = exported<nv::plugin::GetCreationFuncFunc>(
        library, nv::plugin::kGetCreationFunc)()(&context);
    ASSERT_NE(driver, nullptr);
    EXPECT_NE(static_cast<void*>(driver), static_cast<void*>(&driver->GetOperations()));
    driver->GetOperations().RegisterVariables();
    session.journal.take();
    delete driver;
    EXPECT_THAT(session.journal.take(), ElementsAre("remove variable 1000"));
}

bool isMapped() {
    std::ifstream maps("/proc/self/maps");
    const std::string text{std::istreambuf_iterator<char>(maps), {}};
    return text.find("norvane_agent_driverupdate.so") != std::string::npos;
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#elif defined(__has_feature)
constexpr bool kSanitized = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
constexpr bool kSanitized = false;
#endif

TEST(Plugin, LeavesTheProcessWholeAfterARequestInFlight) {
    if (kSanitized) GTEST_SKIP() << "sanitizers cannot name what an unloaded library did";
    AgentSession session;
    session.host.driverFiles = {"a.nvz"};
    CreationContext context{session.host, support::RecordingHost::kDeviceId};
    {
        const Library library = load();
        IHostedDriver* driver = exported<nv::plugin::GetCreationFuncFunc>(
            library, nv::plugin::kGetCreationFunc)()(&context);
        IDriverOperations& operations = driver->GetOperations();
        operations.RegisterCommands();
        operations.GetAgent()->GetCmdDispatcher().DispatchCmd(
            support::CommandMessage("EXECUTE_AUTO_UPDATE"));
        ASSERT_EQ(session.transport->transfers().size(), 1U);
        EXPECT_TRUE(isMapped());
        delete driver;
        session.loop.runReady();
    }
    EXPECT_FALSE(isMapped());
    session.transport->answerLate(0, 200, "late");
    session.loop.runReady();
}

}  // namespace
