#pragma once

/// Names of Asio that SDK headers mention. Whoever runs the loop includes Asio itself; everybody
/// else compiles without it, since its headers cost seconds in every source that includes them.
namespace boost::asio {
class io_context;
class const_buffer;
}  // namespace boost::asio
