#include <nv/xml_node.h>

#include <boost/make_shared.hpp>
#include <utility>

namespace nv {

namespace {

bool isElement(const pugi::xml_node& node) {
    return node.type() == pugi::node_element;
}

pugi::xml_node nextElement(pugi::xml_node node) {
    while (node && !isElement(node)) node = node.next_sibling();
    return node;
}

/// Walks without recursion: hostile input chooses the depth.
bool isNestedDeeperThan(const pugi::xml_node& root, std::size_t limit) {
    pugi::xml_node place = root;
    std::size_t depth = 1;
    while (place) {
        if (place.first_child()) {
            place = place.first_child();
            if (++depth > limit) return true;
            continue;
        }
        while (place != root && !place.next_sibling()) {
            place = place.parent();
            --depth;
        }
        if (place == root) return false;
        place = place.next_sibling();
    }
    return false;
}

struct TextWriter : pugi::xml_writer {
    std::string text;
    void write(const void* data, std::size_t size) override {
        text.append(static_cast<const char*>(data), size);
    }
};

}  // namespace

XmlNode::XmlNode(std::shared_ptr<pugi::xml_document> tree, pugi::xml_node place)
    : tree_(std::move(tree)), place_(place) {}

void XmlNode::Initialize(const std::string& name, const std::string& text) {
    tree_ = std::make_shared<pugi::xml_document>();
    place_ = tree_->append_child(name.c_str());
    if (!text.empty()) place_.text().set(text.c_str());
}

std::string XmlNode::GetName() const {
    return place_.name();
}

std::string XmlNode::GetData() const {
    return place_.text().get();
}

bool XmlNode::IsName(const std::string& name) const {
    return place_ && name == place_.name();
}

XmlNode::Ptr XmlNode::AddChild(const std::string& name, const std::string& text) {
    return AddChild(name, text.c_str());
}

XmlNode::Ptr XmlNode::AddChild(const std::string& name, const char* text) {
    if (!tree_) Initialize("", "");
    pugi::xml_node child = place_.append_child(name.c_str());
    if (*text != '\0') child.text().set(text);
    return boost::make_shared<XmlNode>(tree_, child);
}

XmlNode::Ptr XmlNode::AddChild(const std::string& name, bool value) {
    return AddChild(name, value ? "true" : "false");
}

void XmlNode::AddChild(const Ptr& child) {
    if (!child || child->IsEmpty()) return;
    if (!tree_) Initialize("", "");
    child->place_ = place_.append_copy(child->place_);
    child->tree_ = tree_;
}

bool XmlNode::ChildExists(const std::string& name) const {
    return static_cast<bool>(place_.child(name.c_str()));
}

std::string XmlNode::GetChildData(const std::string& name) const {
    return place_.child(name.c_str()).text().get();
}

bool XmlNode::GetChildDataBool(const std::string& name) const {
    return place_.child(name.c_str()).text().as_bool();
}

XmlNode::Ptr XmlNode::GetChild(const std::string& name) const {
    return boost::make_shared<XmlNode>(tree_, place_.child(name.c_str()));
}

std::size_t XmlNode::GetChildCount() const {
    std::size_t count = 0;
    for (pugi::xml_node child = nextElement(place_.first_child()); child;
         child = nextElement(child.next_sibling())) {
        ++count;
    }
    return count;
}

XmlNodeIterator XmlNode::GetIterator() const {
    return {tree_, place_.first_child()};
}

std::string XmlNode::ToText(bool indented) const {
    TextWriter writer;
    if (place_) {
        const unsigned int flags =
            pugi::format_no_declaration | (indented ? pugi::format_indent : pugi::format_raw);
        place_.print(writer, "    ", flags, pugi::encoding_utf8);
    }
    return std::move(writer.text);
}

XmlNodeIterator::XmlNodeIterator(std::shared_ptr<pugi::xml_document> tree, pugi::xml_node first)
    : tree_(std::move(tree)), next_(nextElement(first)) {}

XmlNode::Ptr XmlNodeIterator::Next() {
    const pugi::xml_node current = next_;
    next_ = nextElement(current.next_sibling());
    return boost::make_shared<XmlNode>(tree_, current);
}

XmlDocument::XmlDocument(const std::string& text) : root_(CreateXmlNode()) {
    auto tree = std::make_shared<pugi::xml_document>();
    // A text of blanks is a text too: a setting may consist of them.
    constexpr unsigned int kFlags = pugi::parse_default | pugi::parse_ws_pcdata_single;
    if (!tree->load_buffer(text.data(), text.size(), kFlags)) return;
    const pugi::xml_node root = tree->document_element();
    // pugixml accepts a second root; which of the two was meant cannot be known.
    if (!root || nextElement(root.next_sibling())) return;
    if (isNestedDeeperThan(root, XmlNode::kMaximumDepth)) return;
    root_ = boost::make_shared<XmlNode>(std::move(tree), root);
}

XmlNode::Ptr CreateXmlNode() {
    return boost::make_shared<XmlNode>();
}

XmlNode::Ptr CreateXmlNode(const std::string& name, const std::string& text) {
    XmlNode::Ptr node = CreateXmlNode();
    node->Initialize(name, text);
    return node;
}

XmlDocument::Ptr CreateXmlDocument(const std::string& text) {
    return boost::make_shared<XmlDocument>(text);
}

}  // namespace nv

nv::XmlNode::Ptr XmlHelper::convert(const pugi::xml_node& node) {
    auto tree = std::make_shared<pugi::xml_document>();
    const pugi::xml_node copy = tree->append_copy(node);
    return boost::make_shared<nv::XmlNode>(std::move(tree), copy);
}

nv::XmlNode::Ptr XmlHelper::convert(pugi::xml_document&& document) {
    auto tree = std::make_shared<pugi::xml_document>(std::move(document));
    const pugi::xml_node root = tree->document_element();
    return boost::make_shared<nv::XmlNode>(std::move(tree), root);
}
