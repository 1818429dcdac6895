// nv::XmlNode from any text: reading never fails, and what a node says of itself as text means a
// node with the same elements again.
#include <nv/xml_node.h>

#include "fuzz_input.h"

namespace {

std::size_t walk(const nv::XmlNode& node, std::size_t depth) {
    require(depth <= nv::XmlNode::kMaximumDepth);
    std::size_t nodes = 1;
    std::size_t children = 0;
    nv::XmlNodeIterator each = node.GetIterator();
    while (each.HasNext()) {
        const nv::XmlNode::Ptr child = each.Next();
        require(!child->IsEmpty() && node.ChildExists(child->GetName()));
        nodes += walk(*child, depth + 1);
        ++children;
    }
    require(children == node.GetChildCount());
    require(each.Next()->IsEmpty());
    return nodes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const nv::XmlNode::Ptr root = nv::CreateXmlDocument(textOf(data, size))->GetRoot();
    require(root != nullptr);
    if (root->IsEmpty()) {
        require(root->GetName().empty() && root->ToText().empty() && root->GetChildCount() == 0);
        return 0;
    }
    const std::size_t nodes = walk(*root, 1);
    const std::string text = root->ToText();
    const nv::XmlNode::Ptr again = nv::CreateXmlDocument(text)->GetRoot();
    require(walk(*again, 1) == nodes && again->GetName() == root->GetName());
    // XML takes a carriage return for a line's end and text of blanks alone for layout; once that
    // has happened, nothing changes any more.
    const std::string settled = again->ToText();
    require(nv::CreateXmlDocument(settled)->GetRoot()->ToText() == settled);

    // As a child of another tree it is still the same.
    const nv::XmlNode::Ptr parent = nv::CreateXmlNode("parent", "");
    parent->AddChild(again);
    require(parent->GetChildCount() == 1 && again->ToText() == settled);
    return 0;
}
