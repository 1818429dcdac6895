#pragma once

/// The host's own version, "major.minor.build".
namespace nv::version {

unsigned int get_major_version();
unsigned int get_minor_version();
unsigned int get_build_number();

}  // namespace nv::version
