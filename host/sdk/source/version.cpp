#include <nv/version.h>

#include <nvhost/environment.h>

namespace nv::version {

unsigned int get_major_version() {
    return hosting::environment().majorVersion;
}
unsigned int get_minor_version() {
    return hosting::environment().minorVersion;
}
unsigned int get_build_number() {
    return hosting::environment().buildNumber;
}

}  // namespace nv::version
