#pragma once

#include <nv/driver_host.h>
#include <nvhost/clock.h>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "state/history_store.h"

namespace overseer {

/// The history of all agents: stamps, stores and tells. I/O thread only.
class History {
  public:
    using Observer = std::function<void(const HistoryRecord&)>;

    /// `store` outlives it.
    History(HistoryStore& store, std::shared_ptr<nv::hosting::Clock> clock)
        : store_(store), clock_(std::move(clock)) {}

    /// Records an event. Observers hear of it even when it could not be stored; its id is 0 then.
    Result<HistoryRecord> record(const std::string& agent, const HistoryEvent& event);
    /// Called after each record, for as long as the object lives.
    void observe(Observer observer) { observers_.push_back(std::move(observer)); }
    HistoryStore& store() { return store_; }

  private:
    HistoryStore& store_;
    std::shared_ptr<nv::hosting::Clock> clock_;
    std::vector<Observer> observers_;
};

}  // namespace overseer
