#pragma once

namespace overseer::ctl {

/// What `overseerctl` tells its caller. 0 to 4 are the commands' own answers, the rest is what can
/// happen to any of them; from 64 on numbered as other programs of the field number it.
enum ExitCode : int {
    kSuccess = 0,
    kFailure = 1,        ///< it did not work; the reason is on standard error
    kSomeFailed = 2,     ///< all was gone through, and a file or a query failed
    kMayNotReplace = 3,  ///< all was judged, and a file may not replace the installed one
    kRunRefused = 4,     ///< automatic updating is switched off, or a run is already in flight
    kNoHost = 5,         ///< no host runs on that root
    kUsage = 64,         ///< the command line was not understood
    kInterrupted = 130,  ///< SIGINT or SIGTERM; what the host was told goes on there
};

}  // namespace overseer::ctl
