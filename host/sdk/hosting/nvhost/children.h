#pragma once

namespace nv::hosting {

/// Kills the running child and refuses every later one: nv::system answers 127 from then on. For a
/// process that ends. Any thread.
void stopChildren();
/// Whether children are refused. Any thread.
bool childrenStopped();

}  // namespace nv::hosting
