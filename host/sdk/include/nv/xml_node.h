#pragma once

#include <boost/shared_ptr.hpp>
#include <cstddef>
#include <memory>
#include <pugixml.hpp>
#include <string>

namespace nv {

class XmlNodeIterator;

/// A node of an XML tree: what commands carry and answer, what is persisted, what user interfaces
/// are notified of.
///
/// A node is a handle on a place in a pugixml tree that all handles on it share; the tree lives as
/// long as one of them does. Reading never throws and never yields null: what is absent reads as
/// empty text, false or an empty node. Not synchronised: a tree belongs to one thread at a time.
class XmlNode {
  public:
    using Ptr = boost::shared_ptr<XmlNode>;

    /// Deepest nesting that is taken in from text; deeper documents read as empty.
    static constexpr std::size_t kMaximumDepth = 256;

    /// An empty node: no name, no text, no children. It becomes one by `Initialize`.
    XmlNode() = default;
    /// A handle on `place` in `tree`. `place` may be null: an empty node.
    XmlNode(std::shared_ptr<pugi::xml_document> tree, pugi::xml_node place);

    /// Makes this handle the root of a tree of its own with this name and text.
    void Initialize(const std::string& name, const std::string& text);

    std::string GetName() const;
    /// The node's own text: its first text child, empty when there is none.
    std::string GetData() const;
    bool IsName(const std::string& name) const;
    bool IsEmpty() const { return !place_; }

    /// Appends a child with this text and returns a handle on it.
    Ptr AddChild(const std::string& name, const std::string& text);
    /// The same for text in the C form, so that a literal never turns into a boolean.
    Ptr AddChild(const std::string& name, const char* text);
    /// Appends a child whose text is "true" or "false".
    Ptr AddChild(const std::string& name, bool value);
    /// Appends `child` with all below it. Its handle then means the place in this tree.
    void AddChild(const Ptr& child);

    bool ChildExists(const std::string& name) const;
    /// Text of the first child of that name, empty when there is none.
    std::string GetChildData(const std::string& name) const;
    /// True when the first child of that name has a text that begins with 1, t, T, y or Y.
    bool GetChildDataBool(const std::string& name) const;
    /// The first child of that name; an empty node when there is none, never null.
    Ptr GetChild(const std::string& name) const;
    /// How many child elements there are.
    std::size_t GetChildCount() const;
    /// Walks the child elements in document order.
    XmlNodeIterator GetIterator() const;

    /// The node and all below it as XML text without a declaration, indented by four blanks when
    /// `indented`; empty text for an empty node.
    std::string ToText(bool indented = false) const;

  private:
    std::shared_ptr<pugi::xml_document> tree_;
    pugi::xml_node place_;
};

/// Walks the child elements of one node; holds its tree.
class XmlNodeIterator {
  public:
    XmlNodeIterator(std::shared_ptr<pugi::xml_document> tree, pugi::xml_node first);
    bool HasNext() const { return static_cast<bool>(next_); }
    /// The next child; an empty node past the end.
    XmlNode::Ptr Next();

  private:
    std::shared_ptr<pugi::xml_document> tree_;
    pugi::xml_node next_;
};

/// A parsed XML text. One that does not parse, has no or a second root, or nests deeper than
/// XmlNode::kMaximumDepth is a document whose root is an empty node.
class XmlDocument {
  public:
    using Ptr = boost::shared_ptr<XmlDocument>;
    explicit XmlDocument(const std::string& text);
    XmlNode::Ptr GetRoot() const { return root_; }

  private:
    XmlNode::Ptr root_;
};

/// An empty node, to be filled by XmlNode::Initialize.
XmlNode::Ptr CreateXmlNode();
/// A root of its own with this name and text.
XmlNode::Ptr CreateXmlNode(const std::string& name, const std::string& text);
/// Parses `text`; never null and never throws, see XmlDocument.
XmlDocument::Ptr CreateXmlDocument(const std::string& text);

}  // namespace nv

/// From pugixml trees to host nodes.
class XmlHelper {
  public:
    /// A node over a copy of `node` and all below it.
    static nv::XmlNode::Ptr convert(const pugi::xml_node& node);
    /// A node over the document itself, without a copy.
    static nv::XmlNode::Ptr convert(pugi::xml_document&& document);
};
