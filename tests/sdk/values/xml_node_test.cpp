#include <gtest/gtest.h>
#include <nv/xml_node.h>

#include <string>

namespace {

TEST(XmlNode, WritesTextBooleansAndSubtreesInOrder) {
    const nv::XmlNode::Ptr root = nv::CreateXmlNode("state", "");
    root->AddChild("enabled", true);
    root->AddChild("literal", "0");
    root->AddChild("text", std::string("a < b & \"c\""));
    const nv::XmlNode::Ptr item = nv::CreateXmlNode("item", "x");
    root->AddChild(item);
    item->AddChild("late", false);
    EXPECT_EQ(root->ToText(),
              "<state><enabled>true</enabled><literal>0</literal><text>a &lt; b &amp; \"c\"</text>"
              "<item>x<late>false</late></item></state>");
}

TEST(XmlNode, ReadsWhatIsAbsentAsNothing) {
    const nv::XmlNode::Ptr empty = nv::CreateXmlNode();
    EXPECT_TRUE(empty->IsEmpty());
    EXPECT_FALSE(empty->IsName(""));
    EXPECT_FALSE(empty->ChildExists("a"));
    EXPECT_EQ(empty->GetChildData("a"), "");
    EXPECT_FALSE(empty->GetChildDataBool("a"));
    EXPECT_EQ(empty->GetChildCount(), 0u);
    EXPECT_FALSE(empty->GetIterator().HasNext());
    EXPECT_TRUE(empty->GetIterator().Next()->IsEmpty());
    EXPECT_TRUE(empty->GetChild("a")->GetChild("b")->IsEmpty());
    EXPECT_EQ(empty->ToText(), "");
}

TEST(XmlNode, ReadsBooleansByTheirFirstCharacter) {
    const nv::XmlNode::Ptr root =
        nv::CreateXmlDocument("<r><a>True</a><b>yes</b><c>1</c><d>no</d><e/><f>0</f></r>")
            ->GetRoot();
    EXPECT_TRUE(root->GetChildDataBool("a"));
    EXPECT_TRUE(root->GetChildDataBool("b"));
    EXPECT_TRUE(root->GetChildDataBool("c"));
    EXPECT_FALSE(root->GetChildDataBool("d"));
    EXPECT_FALSE(root->GetChildDataBool("e"));
    EXPECT_FALSE(root->GetChildDataBool("f"));
}

TEST(XmlNode, WalksElementsOnlyAndKeepsTheTreeAlive) {
    nv::XmlNodeIterator walk =
        nv::CreateXmlDocument("<r>text<a>1</a><!-- c --><b>2</b></r>")->GetRoot()->GetIterator();
    std::string seen;
    while (walk.HasNext()) {
        const nv::XmlNode::Ptr child = walk.Next();
        seen += child->GetName() + "=" + child->GetData() + ";";
    }
    EXPECT_EQ(seen, "a=1;b=2;");
}

TEST(XmlDocument, TextThatIsNoSingleDocumentHasAnEmptyRoot) {
    std::string deep;
    for (int level = 0; level < 100'000; ++level) deep += "<a>";
    std::string nested = "<r>";
    for (std::size_t level = 1; level < nv::XmlNode::kMaximumDepth; ++level) nested += "<a>";
    std::string unnested;
    for (std::size_t level = 1; level < nv::XmlNode::kMaximumDepth; ++level) unnested += "</a>";
    const std::string closed = deep + [] {
        std::string ends;
        for (int level = 0; level < 100'000; ++level) ends += "</a>";
        return ends;
    }();
    for (const std::string& text :
         {std::string(), std::string("no xml"), std::string("<a>"), std::string("<a/><b/>"), deep,
          closed, nested + "<a></a>" + unnested + "</r>"}) {
        EXPECT_TRUE(nv::CreateXmlDocument(text)->GetRoot()->IsEmpty()) << text.substr(0, 40);
    }
    EXPECT_FALSE(nv::CreateXmlDocument(nested + unnested + "</r>")->GetRoot()->IsEmpty());
}

TEST(XmlHelper, ConvertsWithAndWithoutACopy) {
    pugi::xml_document document;
    pugi::xml_node root = document.append_child("setup");
    root.append_attribute("include") = true;
    const nv::XmlNode::Ptr copy = XmlHelper::convert(root);
    root.append_child("later");
    EXPECT_EQ(copy->ToText(), "<setup include=\"true\"/>");
    EXPECT_EQ(XmlHelper::convert(std::move(document))->ToText(),
              "<setup include=\"true\"><later/></setup>");
}

}  // namespace
