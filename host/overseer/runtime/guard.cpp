#include "runtime/guard.h"

#include <cxxabi.h>
#include <boost/core/demangle.hpp>
#include <typeinfo>

namespace overseer {

std::string currentException() {
    try {
        throw;
    } catch (const std::exception& exception) {
        return boost::core::demangle(typeid(exception).name()) + ": " + exception.what();
    } catch (...) {
        const std::type_info* type = abi::__cxa_current_exception_type();
        return type != nullptr ? boost::core::demangle(type->name()) : std::string("something");
    }
}

}  // namespace overseer
