// One XML element of the XMPP stream: a name, its attributes, its text and its children. The
// stanzas the connection sends and receives are built from these.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace quor {

class QuorXmlElement {
 public:
  explicit QuorXmlElement(std::string name, const std::string& xmlns = "");
  ~QuorXmlElement();
  QuorXmlElement(const QuorXmlElement&) = delete;
  QuorXmlElement& operator=(const QuorXmlElement&) = delete;

  const std::string& name() const { return name_; }
  // The name without its prefix ("stream:features" -> "features").
  std::string localName() const;
  // The attribute's value, "" when absent.
  const std::string& attribute(const std::string& name) const;
  bool hasAttribute(const std::string& name) const;
  QuorXmlElement& set(const std::string& name, std::string value);
  // Appends an attribute the element does not have yet (the parser's, which refuses repeated
  // names): no search, so an element's attributes cost time linear in their number.
  void append(std::string name, std::string value) {
    attributes_.emplace_back(std::move(name), std::move(value));
  }
  const std::string& text() const { return text_; }
  QuorXmlElement& setText(std::string text);
  void appendText(const char* data, std::size_t size) { text_.append(data, size); }

  // Adds a child and returns it.
  QuorXmlElement& add(std::unique_ptr<QuorXmlElement> child);
  QuorXmlElement& add(std::string name, const std::string& xmlns = "");
  const std::vector<std::unique_ptr<QuorXmlElement>>& children() const { return children_; }
  // The first child with this local name and, unless `xmlns` is empty, this namespace
  // attribute; null when there is none.
  const QuorXmlElement* child(const std::string& localName, const std::string& xmlns = "") const;

  // The element as XML text, attributes and text escaped.
  std::string toXml() const;
  // Appends `text` to `out` escaped for XML character data and attribute values.
  static void escape(const std::string& text, std::string& out);

 private:
  void write(std::string& out) const;

  std::string name_;
  std::vector<std::pair<std::string, std::string>> attributes_;
  std::string text_;
  std::vector<std::unique_ptr<QuorXmlElement>> children_;
};

}  // namespace quor
