#pragma once

#include <memory>
#include <string>

#include "common/result.h"
#include "root/controller_root.h"
#include "runtime/configuration.h"

namespace overseer {

/// The running host: all services of a controller root, its agents, and the loop that they share.
///
/// Made, run and destroyed on one thread, which is the I/O thread: everything that enters an agent
/// runs there.
class Host {
  public:
    /// Why a run ended.
    enum class End { kStopped, kRestart };

    /// Brings everything up: state, project, drivers, agents, control interface. An error when the
    /// host cannot start; nothing of the user's was changed then.
    /// @param root  of which the caller holds the lock for as long as the host lives
    static Result<std::unique_ptr<Host>> start(const Configuration& configuration,
                                               const ControllerRoot& root);
    ~Host();
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    /// One line for whoever started the host: how many agents and drivers there are, and where.
    std::string summary() const;
    /// Runs until a stop or a restart was asked for; agents have persisted and are gone then.
    End run();
    /// Ends a running child at once and has `run` return. Any thread, also before `run`.
    void requestStop();

  private:
    struct Services;

    explicit Host(std::unique_ptr<Services> services);

    std::unique_ptr<Services> services_;
};

}  // namespace overseer
