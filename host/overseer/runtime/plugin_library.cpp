#include "runtime/plugin_library.h"

#include <dlfcn.h>

#include <utility>

#include "runtime/guard.h"

namespace overseer {

namespace {

template <typename Function>
Function symbol(void* handle, const char* name) {
    return reinterpret_cast<Function>(dlsym(handle, name));
}

}  // namespace

void PluginLibrary::DriverDeleter::operator()(IHostedDriver* driver) const {
    // The host's side of the boundary: what the creation function allocated, its class frees.
    delete driver;
}

PluginLibrary::PluginLibrary(boost::filesystem::path file, void* handle)
    : file_(std::move(file)), handle_(handle) {}

PluginLibrary::~PluginLibrary() {
    dlclose(handle_);
}

Result<std::shared_ptr<PluginLibrary>> PluginLibrary::load(const boost::filesystem::path& file) {
    void* handle = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        const char* reason = dlerror();  // NOLINT(concurrency-mt-unsafe): glibc's is per thread
        return failure("the agent library {} cannot be loaded: {}", file.string(),
                       reason != nullptr ? reason : "unknown reason");
    }
    std::shared_ptr<PluginLibrary> library(new PluginLibrary(file, handle));
    if (Result<> read = library->readExports(); !read) return tl::unexpected(read.error());
    return library;
}

Result<> PluginLibrary::readExports() {
    const auto getNames = symbol<nv::plugin::GetAgentNameFunc>(handle_, nv::plugin::kGetAgentName);
    const auto getCreation =
        symbol<nv::plugin::GetCreationFuncFunc>(handle_, nv::plugin::kGetCreationFunc);
    if (getNames == nullptr || getCreation == nullptr) {
        return failure("{} is no agent library: it does not export {} and {}", file_.string(),
                       nv::plugin::kGetAgentName, nv::plugin::kGetCreationFunc);
    }
    if (Result<> called = guarded(nv::plugin::kGetAgentName, [&] { getNames(names_); }); !called) {
        return inContext(file_.string(), called.error());
    }
    if (Result<> called =
            guarded(nv::plugin::kGetCreationFunc, [&] { creationFunc_ = getCreation(); });
        !called) {
        return inContext(file_.string(), called.error());
    }
    if (names_.empty() || creationFunc_ == nullptr) {
        return failure("{} holds no agent", file_.string());
    }
    return {};
}

Result<PluginLibrary::Driver> PluginLibrary::create(CreationContext& context) {
    IHostedDriver* made = nullptr;
    Result<> called = guarded("its creation", [&] { made = creationFunc_(&context); });
    if (!called) return inContext(file_.string(), called.error());
    if (made == nullptr) return failure("{}: no memory for the agent", file_.string());
    return Driver(made, DriverDeleter{shared_from_this()});
}

}  // namespace overseer
