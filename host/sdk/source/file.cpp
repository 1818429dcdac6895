// Files read whole into memory.

#include <nv/file.h>
#include <nvhost/regular_file.h>

RESULTX FileX::Load(const std::string& path, std::string& out) {
    boost::system::error_code error;
    std::string text = nv::hosting::readRegularFile(path, error);
    if (error) return -1;
    out = std::move(text);
    return static_cast<RESULTX>(out.size());
}
