// From a request to its answer: selects from memory, package files streamed from disk.
#include "depot/request_handler.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <memory>
#include <optional>
#include <string>

#include "depot/answer.h"
#include "depot/byte_range.h"
#include "depot/select_handler.h"
#include "depot/url_decoding.h"

namespace depot {
namespace {

constexpr std::size_t kChunk = 64 * 1024;

void send(const Answer& answer, httplib::Response& response) {
    response.status = answer.status;
    response.set_content(answer.body, answer.contentType);
    for (const auto& [name, value] : answer.headers) response.set_header(name, value);
}

std::optional<std::string> field(const httplib::Request& request, const char* name) {
    if (!request.has_header(name)) return std::nullopt;
    return request.get_header_value(name);
}

/// Whether the open file still is the one that the catalogue has read.
bool unchanged(const Catalogue::OpenPackage& package) {
    struct stat status {};
    return ::fstat(package.file.get(), &status) == 0 && stampOf(status) == package.entry->stamp;
}

/// Sends one chunk. Where the file was changed meanwhile the transfer is broken off, so that nobody
/// takes a mixture of two versions for a package.
bool sendChunk(const Catalogue::OpenPackage& package, std::int64_t at, std::size_t length,
               httplib::DataSink& sink) {
    std::array<char, kChunk> buffer;  // NOLINT(cppcoreguidelines-pro-type-member-init): filled next
    const std::size_t wanted = std::min(length, buffer.size());
    const ssize_t count = ::pread(package.file.get(), buffer.data(), wanted, at);
    if (count < 0 && errno == EINTR) return true;
    if (count <= 0 || !unchanged(package)) return false;
    return sink.write(buffer.data(), static_cast<std::size_t>(count));
}

void sendFile(Catalogue::OpenPackage opened, const httplib::Request& request,
              httplib::Response& response) {
    const auto package = std::make_shared<const Catalogue::OpenPackage>(std::move(opened));
    const std::string entityTag = "\"" + package->entry->document.md5sum + "\"";
    const RangePlan plan = planRange({field(request, "Range"), field(request, "If-Range")},
                                     {package->entry->stamp.size, entityTag});
    response.status = plan.status;
    response.set_header("Accept-Ranges", "bytes");
    response.set_header("ETag", entityTag);
    response.set_header("Cache-Control", "no-cache");
    if (plan.contentRange) response.set_header("Content-Range", *plan.contentRange);
    if (plan.length == 0) return;
    response.set_content_provider(
        static_cast<std::size_t>(plan.length), "application/octet-stream",
        [package, begin = plan.offset](std::size_t at, std::size_t length,
                                       httplib::DataSink& sink) {
            return sendChunk(*package, begin + static_cast<std::int64_t>(at), length, sink);
        });
}

void handleFile(Catalogue& catalogue, const std::string& filename, const httplib::Request& request,
                httplib::Response& response) {
    auto package = catalogue.open(filename);
    if (package) return sendFile(std::move(*package), request, response);
    switch (package.error()) {
        case Catalogue::OpenFailure::kNotFound:
            send(htmlError(404, "Not Found"), response);
            return;
        case Catalogue::OpenFailure::kChanging:
            send(htmlError(503, "Service Unavailable: the package is being replaced"), response);
            response.set_header("Retry-After", "1");
            return;
    }
}

}  // namespace

void handleRequest(Catalogue& catalogue, const httplib::Request& request,
                   httplib::Response& response) {
    if (request.method != "GET" && request.method != "HEAD") {
        send(htmlError(405, "Method Not Allowed"), response);
        response.set_header("Allow", "GET, HEAD");
        return;
    }
    const std::string_view target = request.target;
    const std::size_t mark = std::min(target.find('?'), target.size());
    const auto path = decodeUrlPart(target.substr(0, mark), false);
    const std::string_view query = target.substr(std::min(mark + 1, target.size()));
    if (!path)
        return send(htmlError(400, "Bad Request: the path is not a valid URL path"), response);
    if (*path == "/drivers/select")
        return send(answerSelect(*catalogue.snapshot(), Core::kDrivers, query), response);
    if (*path == "/agents/select")
        return send(answerSelect(*catalogue.snapshot(), Core::kAgents, query), response);
    // The rest is looked up among the documents by its name, never as a path.
    handleFile(catalogue, path->substr(1), request, response);
}

}  // namespace depot
