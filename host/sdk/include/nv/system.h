#pragma once

namespace nv {

/// Runs a command line and waits for it, without a shell.
///
/// Understood are words, double quotes (everything between two of them is literal), `>> FILE` and
/// `2>&1`; any other shell character outside quotes refuses the line. The child has an empty
/// standard input, a session of its own, no descriptor above 2 and a small fixed environment; what
/// it prints goes to the host's command log unless redirected. After the host's time limit, or when
/// the host stops, its whole process group is killed.
/// @return its exit status, 128 + n after signal n, 127 when it could not be started or the line
/// was
///         refused. Anything but 0 is logged with the last lines of its output.
int system(const char* command);

}  // namespace nv
