#pragma once

#include <cstddef>

namespace nv::hosting {

/// How many children of nv::system are running.
std::size_t runningChildren();
/// Kills the running child and refuses every later one: nv::system answers 127 from then on. Any
/// thread.
void stopChildren();
/// Whether children are refused at present. Any thread.
bool childrenStopped();
/// Takes stopChildren back; for a host that starts again in the same process.
void allowChildren();

}  // namespace nv::hosting
