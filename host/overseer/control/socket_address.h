#pragma once

#include <string>

#include "common/result.h"

namespace overseer::control {

/// The path of a Unix socket in a form that the kernel takes, whose limit is 107 bytes: a longer
/// one goes through a descriptor of its folder, which this object holds. The form is good as long
/// as the object lives.
class SocketAddress {
  public:
    /// An error when the folder of a long path cannot be opened.
    static Result<SocketAddress> of(const std::string& path);

    SocketAddress(SocketAddress&& other) noexcept;
    SocketAddress& operator=(SocketAddress&& other) noexcept;
    ~SocketAddress();

    const std::string& text() const { return text_; }

  private:
    SocketAddress(std::string text, int folder) : text_(std::move(text)), folder_(folder) {}

    std::string text_;
    int folder_ = -1;
};

/// Where the control socket of a controller root lies.
std::string controlSocketPath(const std::string& root);

}  // namespace overseer::control
