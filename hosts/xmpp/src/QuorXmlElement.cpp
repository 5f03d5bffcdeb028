#include "QuorXmlElement.h"

namespace quor {
namespace {

const std::string kNothing;

}  // namespace

QuorXmlElement::QuorXmlElement(std::string name, const std::string& xmlns)
    : name_(std::move(name)) {
  if (!xmlns.empty()) set("xmlns", xmlns);
}

QuorXmlElement::~QuorXmlElement() {
  // Children are taken apart level by level, so that freeing never recurses, however deep.
  std::vector<std::unique_ptr<QuorXmlElement>> pending = std::move(children_);
  while (!pending.empty()) {
    std::unique_ptr<QuorXmlElement> element = std::move(pending.back());
    pending.pop_back();
    for (auto& child : element->children_) pending.push_back(std::move(child));
    element->children_.clear();
  }
}

std::string QuorXmlElement::localName() const {
  const auto colon = name_.find(':');
  return colon == std::string::npos ? name_ : name_.substr(colon + 1);
}

const std::string& QuorXmlElement::attribute(const std::string& name) const {
  for (const auto& attribute : attributes_) {
    if (attribute.first == name) return attribute.second;
  }
  return kNothing;
}

bool QuorXmlElement::hasAttribute(const std::string& name) const {
  for (const auto& attribute : attributes_) {
    if (attribute.first == name) return true;
  }
  return false;
}

QuorXmlElement& QuorXmlElement::set(const std::string& name, std::string value) {
  for (auto& attribute : attributes_) {
    if (attribute.first == name) {
      attribute.second = std::move(value);
      return *this;
    }
  }
  attributes_.emplace_back(name, std::move(value));
  return *this;
}

QuorXmlElement& QuorXmlElement::setText(std::string text) {
  text_ = std::move(text);
  return *this;
}

QuorXmlElement& QuorXmlElement::add(std::unique_ptr<QuorXmlElement> child) {
  children_.push_back(std::move(child));
  return *children_.back();
}

QuorXmlElement& QuorXmlElement::add(std::string name, const std::string& xmlns) {
  return add(std::make_unique<QuorXmlElement>(std::move(name), xmlns));
}

const QuorXmlElement* QuorXmlElement::child(const std::string& localName,
                                            const std::string& xmlns) const {
  for (const auto& child : children_) {
    if (child->localName() == localName && (xmlns.empty() || child->attribute("xmlns") == xmlns)) {
      return child.get();
    }
  }
  return nullptr;
}

void QuorXmlElement::escape(const std::string& text, std::string& out) {
  for (const char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '\'':
        out += "&apos;";
        break;
      case '"':
        out += "&quot;";
        break;
      default:
        out += c;
    }
  }
}

std::string QuorXmlElement::toXml() const {
  std::string out;
  write(out);
  return out;
}

// Recursion here follows the elements this program builds (a few levels), never received data.
void QuorXmlElement::write(std::string& out) const {
  out += '<';
  out += name_;
  for (const auto& attribute : attributes_) {
    out += ' ';
    out += attribute.first;
    out += "='";
    escape(attribute.second, out);
    out += '\'';
  }
  if (text_.empty() && children_.empty()) {
    out += "/>";
    return;
  }
  out += '>';
  escape(text_, out);
  for (const auto& child : children_) child->write(out);
  out += "</";
  out += name_;
  out += '>';
}

}  // namespace quor
