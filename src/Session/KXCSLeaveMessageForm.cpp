#include "Session/KXCSLeaveMessageForm.h"

#include <cctype>
#include <nlohmann/json.hpp>
#include <unordered_map>

namespace quor {
namespace {

// Characters (UTF-8 code points), not bytes: a Chinese name of 20 characters fits "max": 20.
std::size_t characters(const std::string& text) {
  std::size_t count = 0;
  for (const unsigned char c : text) count += (c & 0xC0) != 0x80;
  return count;
}

bool allDigits(const std::string& text) {
  if (text.empty()) return false;
  for (const unsigned char c : text) {
    if (!std::isdigit(c)) return false;
  }
  return true;
}

// A telephone number: an optional leading '+', then digits with spaces or '-' between them,
// 3 to 20 digits in all.
bool isPhone(const std::string& text) {
  std::size_t digits = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    if (std::isdigit(c)) {
      ++digits;
    } else if (!((c == '+' && i == 0) || c == ' ' || c == '-')) {
      return false;
    }
  }
  return digits >= 3 && digits <= 20;
}

// local@domain.tld, without spaces.
bool isEmail(const std::string& text) {
  const auto at = text.find('@');
  if (at == 0 || at == std::string::npos || text.find('@', at + 1) != std::string::npos) {
    return false;
  }
  const auto dot = text.rfind('.');
  if (dot == std::string::npos || dot < at + 2 || dot + 1 >= text.size()) return false;
  for (const unsigned char c : text) {
    if (std::isspace(c)) return false;
  }
  return true;
}

}  // namespace

bool KXCSLeaveMessageForm::verifies(const std::string& name, const std::string& text) {
  if (name == "mobile") return text.size() == 11 && text[0] == '1' && allDigits(text);
  if (name == "phone" || name == "tel") return isPhone(text);
  if (name == "email") return isEmail(text);
  if (name == "number") return allDigits(text);
  return true;
}

std::map<std::string, std::string> KXCSLeaveMessageForm::check(
    const KXCSLeaveMessageItemList& fields, const KXDictionary& values) {
  std::map<std::string, std::string> errors;
  if (!fields) return errors;
  // One pass over the values: the ordered dictionary searches its keys on every find().
  std::unordered_map<std::string, const KXDictionary*> byName;
  if (values.is_object()) {
    for (const auto& [key, value] : values.items()) byName[key] = &value;
  }
  for (const auto& field : *fields) {
    if (!field || !field->name()) continue;
    const std::string& name = *field->name();
    const auto found = byName.find(name);
    const bool present = found != byName.end() && !found->second->is_null();
    const KXDictionary* value = present ? found->second : nullptr;
    // An object or a list is the app's own structure: present, and not checked as text (it
    // is not written out here, whatever its depth).
    if (value && value->is_structured()) continue;
    std::string text;
    if (value) text = value->is_string() ? value->get<std::string>() : value->dump();
    if (!present || text.empty()) {
      if (field->required()) errors[name] = "required";
      continue;
    }
    if (field->max() > 0 && characters(text) > static_cast<std::size_t>(field->max())) {
      errors[name] = "too long";
    } else if (field->verification() && !verifies(*field->verification(), text)) {
      errors[name] = *field->verification();
    }
  }
  return errors;
}

}  // namespace quor
