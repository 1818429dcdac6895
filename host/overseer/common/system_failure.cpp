#include "common/system_failure.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

namespace overseer {

std::string lastErrorText() {
    return std::system_category().message(errno);
}

bool isOfMachine(int number) {
    static constexpr std::array kNumbers = {EMFILE, ENFILE, ENOMEM, EIO,    EACCES, EPERM,
                                            ENOSPC, EDQUOT, EROFS,  ESTALE, EAGAIN};
    return std::find(kNumbers.begin(), kNumbers.end(), number) != kNumbers.end();
}

tl::unexpected<Error> systemFailure(const std::string& what, int number) {
    return tl::unexpected<Error>(
        Error{what + ": " + std::system_category().message(number), isOfMachine(number)});
}

tl::unexpected<Error> systemFailure(const std::string& what,
                                    const boost::system::error_code& error) {
    const bool ofSystem = error.category() == boost::system::system_category() ||
                          error.category() == boost::system::generic_category();
    return tl::unexpected<Error>(
        Error{what + ": " + error.message(), ofSystem && isOfMachine(error.value())});
}

}  // namespace overseer
