#pragma once

#include <chrono>

namespace overseer::ctl {

/// Whether the user wants to leave: SIGINT and SIGTERM are taken for as long as it lives, and show
/// as a descriptor that becomes readable, so that every wait of the program ends at once.
/// One at a time in a process.
class Interruption {
  public:
    Interruption();
    ~Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

    /// Readable once the user has asked; stays so.
    int descriptor() const { return descriptor_; }
    bool requested() const;
    /// Asks in the user's place. Any thread.
    void request();
    /// @return true when the user asked before `delay` had passed
    bool waitFor(std::chrono::milliseconds delay) const;

  private:
    int descriptor_;
};

}  // namespace overseer::ctl
