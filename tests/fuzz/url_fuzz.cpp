// URLs and query text, any bytes: what is accepted goes out as one word of a request line, and
// means the same when it comes back in.
#include <nv/http.h>

#include <algorithm>

#include "fuzz_input.h"

namespace {

bool mayStandInARequestLine(char character) {
    return character > ' ' && character < '\x7f' && character != '"';
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using nv::net::http::Url;
    // As it stands, and as the query that the agent puts behind the catalogue's base.
    const std::string text = textOf(data, size);
    for (const std::string& given : {text, "https://catalogue.test/solr/drivers/select?" + text}) {
        boost::system::error_code error;
        const Url url = Url::createUrl(given, error);
        if (error) continue;
        require(url.text() == given);
        const std::string wire = url.wireText();
        require(std::all_of(wire.begin(), wire.end(), mayStandInARequestLine));
        const Url again = Url::createUrl(wire, error);
        require(!error && again.wireText() == wire);
    }
    return 0;
}
