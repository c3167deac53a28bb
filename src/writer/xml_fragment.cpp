#include "writer/xml_fragment.h"

#include <algorithm>

#include "importers/xml_parser.h"

namespace inkharbour::writer {

namespace {

class TreeBuilder final : public XmlHandler {
 public:
  explicit TreeBuilder(std::vector<XmlNode>& nodes) : nodes_(nodes) { setWantsCharacters(false); }

  void attach(const XmlParser& parser) { parser_ = &parser; }

  void startElement(std::string_view name, const XmlAttributes&) override {
    XmlNode node;
    node.name = std::string(name);
    node.start = parser_->eventOffset();
    node.openEnd = node.start + parser_->eventLength();
    node.parent = open_.empty() ? -1 : open_.back();
    const int index = static_cast<int>(nodes_.size());
    if (node.parent >= 0) nodes_[static_cast<std::size_t>(node.parent)].children.push_back(index);
    nodes_.push_back(std::move(node));
    open_.push_back(index);
  }

  void endElement(std::string_view) override {
    auto& node = nodes_[static_cast<std::size_t>(open_.back())];
    open_.pop_back();
    const std::size_t length = parser_->eventLength();
    if (length == 0) {
      node.closeStart = node.end = node.openEnd;  // <w:p/>
    } else {
      node.closeStart = parser_->eventOffset();
      node.end = node.closeStart + length;
    }
  }

  void characters(std::string_view) override {}

 private:
  std::vector<XmlNode>& nodes_;
  std::vector<int> open_;
  const XmlParser* parser_ = nullptr;
};

}  // namespace

std::optional<XmlFragment> XmlFragment::parse(std::string_view xml) {
  XmlFragment fragment;
  fragment.text_ = xml;
  TreeBuilder builder(fragment.nodes_);
  XmlParser parser(builder);
  builder.attach(parser);
  parser.feed(xml, true);
  if (!parser.succeeded() || fragment.nodes_.empty()) return std::nullopt;
  return fragment;
}

std::string_view XmlFragment::bytes(const XmlNode& node) const {
  return text_.substr(node.start, node.end - node.start);
}

std::string_view XmlFragment::inner(const XmlNode& node) const {
  return text_.substr(node.openEnd, node.closeStart - node.openEnd);
}

const XmlNode* XmlFragment::child(const XmlNode& parent, std::string_view name) const {
  for (const int index : parent.children) {
    if (node(index).name == name) return &node(index);
  }
  return nullptr;
}

bool XmlFragment::holds(const XmlNode& parent, std::string_view name) const {
  // Descendants follow their ancestor and end before it does.
  const auto first = static_cast<std::size_t>(indexOf(parent)) + 1;
  for (std::size_t i = first; i < nodes_.size() && nodes_[i].start < parent.end; ++i) {
    if (nodes_[i].name == name) return true;
  }
  return false;
}

bool XmlFragment::inside(const XmlNode& start, std::string_view name, const XmlNode& top) const {
  const int stop = indexOf(top);
  for (int index = start.parent; index >= 0 && index != stop; index = node(index).parent) {
    if (node(index).name == name) return true;
  }
  return false;
}

}  // namespace inkharbour::writer
