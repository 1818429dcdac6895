#include "root/descriptor.h"

#include <unistd.h>
#include <cerrno>
#include <system_error>

namespace overseer {

Descriptor::~Descriptor() {
    if (isOpen()) ::close(number_);
}

std::string lastErrorText() {
    return std::system_category().message(errno);
}

}  // namespace overseer
