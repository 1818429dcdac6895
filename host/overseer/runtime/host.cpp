#include "runtime/host.h"

#include <malloc.h>
#include <nvhost/children.h>
#include <nvhost/environment.h>
#include <nvhost/transport.h>
#include <unistd.h>

#include <atomic>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <thread>
#include <utility>

#include "common/log.h"
#include "control/http_message.h"
#include "control/server.h"
#include "drivers/packaged_agents.h"
#include "root/temporary_folder.h"
#include "runtime/agents.h"
#include "runtime/control_backend.h"
#include "runtime/driver_desk.h"
#include "runtime/guard.h"
#include "runtime/host_state.h"
#include "runtime/idle_watch.h"
#include "runtime/overseer_interface.h"
#include "runtime/process.h"
#include "runtime/shortcomings.h"
#include "runtime/surroundings.h"
#include "runtime/update_runs.h"
#include "services/agent_settings.h"
#include "services/log_setup.h"
#include "services/run_journal.h"
#include "services/scheduler.h"
#include "services/variables.h"

namespace overseer {

namespace {

/// Hands the scheduler out; there is nothing else to hand out.
class Instances : public IInstanceManager {
  public:
    explicit Instances(Scheduler& scheduler) : scheduler_(scheduler) {}
    IInstance* GetInstance(const std::string& guid) override {
        return guid == nv::scheduler::IScheduler::kGuid ? &scheduler_ : nullptr;
    }

  private:
    Scheduler& scheduler_;
};

}  // namespace

/// Everything, in the order in which it is made; taken down in the reverse order.
struct Host::Services {
    Services(const Configuration& chosen, const ControllerRoot& folder,
             std::unique_ptr<HostState> opened, std::unique_ptr<TemporaryFolder> entered);

    Result<> startAgents();
    Result<> startControl();
    Scheduler::Surroundings schedulerSurroundings();
    control::HostInformation information() const;
    void observeOutcomes();
    void deliver(std::uint32_t deviceId, std::uint32_t eventId);
    void becameIdle();
    void runLoop();
    void shutDown();
    void end(End how);

    const Configuration configuration;
    ControllerRoot root;
    std::unique_ptr<HostState> state;
    std::unique_ptr<TemporaryFolder> temporary;
    boost::asio::io_context loop{1};
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work{
        loop.get_executor()};
    Variables variables;
    StatsdClient metrics;
    Messages messages;
    DriverDesk drivers;
    RunJournal journal;
    OverseerInterface overseer;
    IdleWatch idle;
    Scheduler scheduler;
    Instances instances;
    AgentSettings settings;
    UpdateRuns runs;
    Agents agents;
    ControlBackend backend;
    std::unique_ptr<control::Server> server;
    std::atomic<bool> ending{false};
    End endedBy = End::kStopped;
};

Host::Services::Services(const Configuration& chosen, const ControllerRoot& folder,
                         std::unique_ptr<HostState> opened,
                         std::unique_ptr<TemporaryFolder> entered)
    : configuration(chosen),
      root(folder),
      state(std::move(opened)),
      temporary(std::move(entered)),
      metrics(statsdSettings(configuration), nv::hosting::environment().clock,
              [this](std::function<void()> call) { boost::asio::post(loop, std::move(call)); }),
      messages(*state->notifications),
      drivers(root, state->project, state->ledger),
      journal(state->runs, nv::hosting::environment().clock,
              [this](const std::string& file) { return drivers.installedVersion(file); }),
      overseer({loop, state->project, drivers, messages, [this] { end(End::kRestart); }}),
      idle(loop, [this] { becameIdle(); }),
      scheduler(schedulerSurroundings()),
      instances(scheduler),
      settings(state->nodes),
      runs({state->project, scheduler, journal, idle}),
      agents({overseer, root, instances, metrics, variables, state->history, *state->notifications,
              scheduler, settings, *temporary}),
      backend({agents, settings, drivers, state->history, idle, *state->notifications, journal,
               scheduler, runs, variables},
              information()) {
    observeOutcomes();
}

Scheduler::Surroundings Host::Services::schedulerSurroundings() {
    return {loop,
            nv::hosting::environment().clock,
            state->schedule,
            [this] { return idle.isIdle(); },
            [this](std::uint32_t device, std::uint32_t event) { deliver(device, event); },
            [this] {
                for (const auto& agent : agents.all()) agent->persistAgain();
            }};
}

control::HostInformation Host::Services::information() const {
    control::HostInformation host;
    host.version = configuration.version;
    host.root = root.path().string();
    host.processId = getpid();
    host.started =
        std::chrono::time_point_cast<std::chrono::milliseconds>(std::chrono::system_clock::now());
    return host;
}

void Host::Services::observeOutcomes() {
    state->notifications->observe([this](const Notification& sent) { journal.notified(sent); });
    state->history.observe([this](const HistoryRecord& record) { journal.recorded(record); });
    metrics.observe([this](const Metric& metric) { journal.measured(metric); });
    nv::hosting::TransportSettings transport = transportSettings(configuration, root);
    transport.downloadFailed = [this](const std::string& url, const std::string& reason) {
        const std::string_view name = std::string_view(url).substr(url.rfind('/') + 1);
        if (const auto file = control::percentDecoded(name)) journal.downloadFailed(*file, reason);
    };
    nv::hosting::configureTransport(loop, std::move(transport));
    observeErrors([this, owner = std::this_thread::get_id()](const std::string& text) {
        if (std::this_thread::get_id() == owner) journal.errorLogged(text);
    });
}

void Host::Services::deliver(std::uint32_t deviceId, std::uint32_t eventId) {
    HostedAgent* agent = agents.find(deviceId);
    if (agent == nullptr) return;
    if (runs.startsRun(eventId)) runs.about(*agent, runs.isForced(eventId));
    agent->deliver(eventId);
    idle.workMayHaveStarted();
}

void Host::Services::becameIdle() {
    for (const auto& agent : agents.all()) agent->persist();
    if (Result<> stored = journal.networkIdle(); !stored) {
        log::error(fmt::format("the last run could not be stored: {}", stored.error().message));
    }
    if (Result<> flushed = drivers.flush(); !flushed) log::error(flushed.error().message);
    // Answers and listings may have taken many times what the host has need of between runs.
    malloc_trim(0);
    temporary->keep();
}

Result<> Host::Services::startAgents() {
    if (Result<> started = scheduler.start(); !started) {
        return inContext("the schedule", started.error());
    }
    for (const std::string& library : agentLibraries(configuration)) {
        if (Result<> loaded = agents.load(library); !loaded) return loaded;
    }
    // A copy: what an agent sets off as it starts may change the project.
    for (const ProjectEntry& agent : std::vector<ProjectEntry>(state->project.agents())) {
        if (agent.library.empty()) continue;
        agents.loadPackaged(agent, agentLibrary(root, agent.file, agent.library));
    }
    idle.workMayHaveStarted();
    return {};
}

Result<> Host::Services::startControl() {
    Result<std::unique_ptr<control::Server>> started =
        control::Server::start(root.controlSocket().string(), backend, loop);
    if (!started) return tl::unexpected(started.error());
    server = std::move(*started);
    return {};
}

void Host::Services::runLoop() {
    for (;;) {
        try {
            loop.run();
            return;
        } catch (...) {
            // A handler that throws costs itself; those behind it go on.
            log::error("a handler on the I/O thread threw " + currentException());
        }
    }
}

void Host::Services::end(End how) {
    if (ending.exchange(true)) return;
    endedBy = how;
    // Behind the call that asked for it, and behind its answer.
    boost::asio::post(loop, [this] { shutDown(); });
}

void Host::Services::shutDown() {
    log::info(endedBy == End::kRestart ? "the host restarts" : "the host stops");
    scheduler.stop();
    for (const auto& agent : agents.all()) agent->persist();
    server.reset();
    agents.destroy();
    // What the agents left queued runs before the marker, while their code is still there.
    boost::asio::post(loop, [this] {
        work.reset();
        loop.stop();
    });
}

Host::Host(std::unique_ptr<Services> services) : services_(std::move(services)) {}

Host::~Host() {
    // An end that came before `run`, or a start that failed half way.
    if (services_) observeErrors({});
}

Result<std::unique_ptr<Host>> Host::start(const Configuration& configuration,
                                          const ControllerRoot& root) {
    const std::size_t descriptors = process::raiseDescriptorLimit();
    Result<std::unique_ptr<HostState>> state = HostState::open(root);
    if (!state) return tl::unexpected(state.error());
    Result<std::unique_ptr<TemporaryFolder>> temporary = TemporaryFolder::enter(root);
    if (!temporary) return tl::unexpected(temporary.error());
    auto services =
        std::make_unique<Services>(configuration, root, std::move(*state), std::move(*temporary));
    warnOfShortcomings(configuration, root, services->state->project,
                       nv::hosting::transportOf(services->loop), descriptors);
    if (Result<> checked = services->drivers.checkAll(); !checked) {
        return tl::unexpected(checked.error());
    }
    if (Result<> started = services->startAgents(); !started) {
        return tl::unexpected(started.error());
    }
    if (Result<> started = services->startControl(); !started) {
        return tl::unexpected(started.error());
    }
    return std::unique_ptr<Host>(new Host(std::move(services)));
}

std::string Host::summary() const {
    const std::size_t agents = services_->agents.all().size();
    return fmt::format("{} agent{}, control socket {}", agents, agents == 1 ? "" : "s",
                       services_->root.controlSocket().string());
}

Host::End Host::run() {
    services_->runLoop();
    return services_->endedBy;
}

void Host::requestStop() {
    nv::hosting::stopChildren();
    services_->end(End::kStopped);
}

}  // namespace overseer
