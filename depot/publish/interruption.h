#pragma once

#include "depot/file_descriptor.h"

namespace depot {

/// SIGINT, SIGTERM and SIGHUP while a release is put out: they are held back from here on, so that
/// none cuts a switch in two, and asked for where it is safe to stop. One thread at a time.
class Interruption {
  public:
    Interruption();

    /// Whether one has arrived by now.
    bool requested();
    /// Whether one has arrived since either was last asked: each ends what is being waited for.
    bool again();

  private:
    FileDescriptor signals_;
    bool arrived_ = false;
};

}  // namespace depot
