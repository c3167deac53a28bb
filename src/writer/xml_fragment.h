// An element of a part parsed into a tree of byte spans, so that a writer can
// copy what it keeps of the element and rewrite the rest. Used on single
// paragraphs, tables and notes, never on whole parts: every node is stored.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace inkharbour::writer {

struct XmlNode {
  std::string name;             // local name: "p" for "w:p"
  std::size_t start = 0;        // the "<" of the start tag
  std::size_t openEnd = 0;      // just past the start tag
  std::size_t closeStart = 0;   // the "<" of the end tag; openEnd for an empty element
  std::size_t end = 0;          // just past the element
  int parent = -1;              // index into the nodes, -1 for the root
  std::vector<int> children;    // element children, in order
};

class XmlFragment {
 public:
  // Parses one element with everything it holds. Prefixes need no
  // declaration. No value when the text is not one well-formed element.
  static std::optional<XmlFragment> parse(std::string_view xml);

  const XmlNode& root() const { return nodes_.front(); }
  const XmlNode& node(int index) const { return nodes_[static_cast<std::size_t>(index)]; }
  std::size_t size() const { return nodes_.size(); }

  // The whole element, and what lies between its tags.
  std::string_view bytes(const XmlNode& node) const;
  std::string_view inner(const XmlNode& node) const;

  // The first child with this local name, or none.
  const XmlNode* child(const XmlNode& parent, std::string_view name) const;
  // True when a node below `parent` (at any depth) has this local name.
  bool holds(const XmlNode& parent, std::string_view name) const;
  // True when `node` lies inside an element with this local name, below `top`.
  bool inside(const XmlNode& node, std::string_view name, const XmlNode& top) const;
  int indexOf(const XmlNode& node) const { return static_cast<int>(&node - nodes_.data()); }

 private:
  std::string_view text_;
  std::vector<XmlNode> nodes_;
};

}  // namespace inkharbour::writer
