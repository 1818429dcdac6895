#include "ctl/offers.h"

#include <cstring>
#include <filesystem>
#include <memory>
#include <sstream>

#include "ctl/manifest_text.h"
#include "drivers/file_names.h"
#include "drivers/manifest.h"

// From files to the command that has them judged.
namespace overseer::ctl {
namespace {

constexpr const char* kEvaluateCommand = "EVALUATE_DRIVER";
// Once more as large in JSON at worst, and the host takes 64 MB.
constexpr std::size_t kLargestDocument = std::size_t(30) << 20;

Result<std::string> readManifest(const Offer& offer) {
    if (Result<> named = checkOfferedFileName(offer.name); !named) {
        return tl::unexpected(named.error());
    }
    if (!isUtf8(offer.name) || !isUtf8(offer.path)) return failure("its name is not UTF-8");
    const Result<std::string> bytes = readManifestText(offer.path, offer.name);
    if (!bytes) return tl::unexpected(bytes.error());
    return toUtf8Manifest(*bytes);
}

/// The command's document, filled item by item up to the size that it may have.
class Batch {
  public:
    void add(const Offer& offer) {
        pugi::xml_node item = document_.document_element();
        if (!item) item = document_.append_child("cur_driver_files");
        item = item.append_child("driver");
        item.append_child("cur_driver_file").text().set(offer.name.c_str());
        item.append_child("new_driver_file").text().set(offer.name.c_str());
        item.append_child("new_driver_xml").text().set(offer.manifest.c_str());
        size_ += sizeOf(offer);
        ++count_;
    }
    bool takes(const Offer& offer) const { return size_ + sizeOf(offer) <= kLargestDocument; }
    std::size_t count() const { return count_; }

    std::string text() const {
        std::ostringstream text;
        document_.save(text, "", pugi::format_raw | pugi::format_no_declaration,
                       pugi::encoding_utf8);
        return text.str();
    }

    /// Bytes of the item in the document.
    static std::size_t sizeOf(const Offer& offer) {
        std::size_t size = offer.manifest.size() + 2 * offer.name.size() + 200;
        for (const char byte : offer.manifest) {
            const bool isControl = byte >= 0 && byte < ' ' && !std::strchr("\t\r\n", byte);
            const bool escaped = byte == '<' || byte == '>' || byte == '&' || isControl;
            size += escaped ? 4 : 0;
        }
        return size;
    }

  private:
    pugi::xml_document document_;
    std::size_t size_ = 0;
    std::size_t count_ = 0;
};

Failure unreadableAnswer() {
    return {Failure::Kind::kBroken, {}, "the agent's answer does not fit what it was asked"};
}

Answered<> send(Session& session, const std::string& agent, const Batch& batch, Answers& answers) {
    const auto reply =
        sendCommand(session, agent, kEvaluateCommand, {{"cur_driver_files", batch.text()}});
    if (!reply) return tl::unexpected(reply.error());
    pugi::xml_document answer;
    if (!answer.load_buffer(reply->body.data(), reply->body.size())) {
        return tl::unexpected(unreadableAnswer());
    }
    std::size_t count = 0;
    for (const pugi::xml_node driver : answer.document_element().children("driver")) {
        answers.document_element().append_copy(driver);
        ++count;
    }
    if (count != batch.count()) return tl::unexpected(unreadableAnswer());
    return {};
}

}  // namespace

Offer readOffer(const std::string& file, const std::string& name) {
    namespace fs = std::filesystem;
    Offer offer;
    offer.name = name.empty() ? fs::path(file).filename().string() : name;
    std::error_code error;
    offer.path = fs::canonical(file, error).string();
    if (error) {
        offer.problem = error.message();
        return offer;
    }
    Result<std::string> manifest = readManifest(offer);
    if (!manifest) {
        offer.problem = withoutSubject(manifest.error().message, offer);
        return offer;
    }
    offer.manifest = std::move(*manifest);
    if (Batch::sizeOf(offer) > kLargestDocument) offer.problem = "its manifest is too large";
    return offer;
}

Answered<> evaluateOffers(Session& session, const std::vector<Offer>& offers, Answers& answers) {
    answers.reset();
    answers.append_child("drivers");
    const auto agent = chooseAgent(session, kEvaluateCommand);
    if (!agent) return tl::unexpected(agent.error());
    auto batch = std::make_unique<Batch>();
    for (const Offer& offer : offers) {
        if (!offer.problem.empty()) continue;
        if (!batch->takes(offer)) {
            if (auto sent = send(session, *agent, *batch, answers); !sent) return sent;
            batch = std::make_unique<Batch>();
        }
        batch->add(offer);
    }
    return batch->count() == 0 ? Answered<>() : send(session, *agent, *batch, answers);
}

std::string withoutSubject(std::string message, const Offer& offer) {
    for (const std::string& subject : {offer.path, offer.name}) {
        if (subject.empty() || message.rfind(subject, 0) != 0) continue;
        message.erase(0, message.find_first_not_of(": ", subject.size()));
        break;
    }
    return message;
}

Verdict toVerdict(pugi::xml_node driver) {
    const auto text = [driver](const char* name) { return driver.child(name).text(); };
    Verdict verdict;
    verdict.mayReplace = text("can_update_driver").as_bool();
    verdict.code = text("update_code").get();
    verdict.problem = text("update_message").get();
    verdict.asksFirst = text("prompt_overwrite").as_bool();
    verdict.question = text("prompt_overwrite_message").get();
    verdict.restarts = text("requires_restart").as_bool();
    verdict.restartReason = text("requires_restart_message").get();
    return verdict;
}

}  // namespace overseer::ctl
