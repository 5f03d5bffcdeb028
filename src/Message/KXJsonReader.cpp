#include "Message/KXJsonReader.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>

#include "KXJsonTree.h"
#include "Support/KXLog.h"

namespace quor {
namespace {

bool isSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

// The leading decimal integer of a string: white space skipped, an optional sign, then digits;
// 0 without digits; saturating at the 32-bit bounds.
int32_t leadingInteger(const std::string& text) {
  std::size_t i = 0;
  while (i < text.size() && isSpace(text[i])) ++i;
  bool negative = false;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
  int64_t magnitude = 0;
  const int64_t limit = negative ? -int64_t{std::numeric_limits<int32_t>::min()}
                                 : int64_t{std::numeric_limits<int32_t>::max()};
  for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
    magnitude = magnitude * 10 + (text[i] - '0');
    if (magnitude >= limit) {
      magnitude = limit;
      break;
    }
  }
  return static_cast<int32_t>(negative ? -magnitude : magnitude);
}

bool leadingTruth(const std::string& text) {
  std::size_t i = 0;
  while (i < text.size() && isSpace(text[i])) ++i;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) ++i;
  while (i < text.size() && text[i] == '0') ++i;
  if (i == text.size()) return false;
  const char c = text[i];
  return c == 'Y' || c == 'y' || c == 'T' || c == 't' || (c >= '1' && c <= '9');
}

int32_t truncatedDouble(double value) {
  if (std::isnan(value)) return 0;
  if (value <= static_cast<double>(std::numeric_limits<int32_t>::min())) {
    return std::numeric_limits<int32_t>::min();
  }
  if (value >= static_cast<double>(std::numeric_limits<int32_t>::max())) {
    return std::numeric_limits<int32_t>::max();
  }
  return static_cast<int32_t>(value);
}

}  // namespace

std::optional<KXDictionary> KXJsonReader::parseObject(const std::string& bytes) {
  // Deeper bodies do not parse: writing such a value out later (a log line, say) would recurse
  // that deep.
  auto root = KXJsonTree::parse(bytes, KXJsonTree::kMaxDepth);
  if (!root || !root->is_object()) return std::nullopt;
  return root;
}

std::optional<KXDictionary> KXJsonReader::readBody(const KXData& data, std::string_view tag,
                                                   std::string_view errorLine) {
  if (!data) return std::nullopt;
  auto body = parseObject(*data);
  if (!body) KXLog::error(tag, errorLine);
  return body;
}

const KXDictionary* KXJsonReader::find(const KXDictionary* object, const char* key) {
  if (object == nullptr || !object->is_object()) return nullptr;
  const auto it = object->find(key);
  return it == object->end() ? nullptr : &*it;
}

const KXDictionary* KXJsonReader::object(const KXDictionary* value) {
  return value != nullptr && value->is_object() ? value : nullptr;
}

const KXDictionary* KXJsonReader::array(const KXDictionary* value) {
  return value != nullptr && value->is_array() ? value : nullptr;
}

int32_t KXJsonReader::integer(const KXDictionary* value) {
  if (value == nullptr) return 0;
  switch (value->type()) {
    case KXDictionary::value_t::number_integer:
      return static_cast<int32_t>(
          static_cast<uint32_t>(value->get_ref<const KXDictionary::number_integer_t&>()));
    case KXDictionary::value_t::number_unsigned:
      return static_cast<int32_t>(
          static_cast<uint32_t>(value->get_ref<const KXDictionary::number_unsigned_t&>()));
    case KXDictionary::value_t::number_float:
      return truncatedDouble(value->get_ref<const KXDictionary::number_float_t&>());
    case KXDictionary::value_t::boolean:
      return value->get_ref<const KXDictionary::boolean_t&>() ? 1 : 0;
    case KXDictionary::value_t::string:
      return leadingInteger(value->get_ref<const KXDictionary::string_t&>());
    default:
      return 0;
  }
}

uint64_t KXJsonReader::widenedInteger(const KXDictionary* value) {
  return static_cast<uint64_t>(static_cast<int64_t>(integer(value)));
}

bool KXJsonReader::boolean(const KXDictionary* value) {
  if (value == nullptr) return false;
  switch (value->type()) {
    case KXDictionary::value_t::number_integer:
      return value->get_ref<const KXDictionary::number_integer_t&>() != 0;
    case KXDictionary::value_t::number_unsigned:
      return value->get_ref<const KXDictionary::number_unsigned_t&>() != 0;
    case KXDictionary::value_t::number_float: {
      const double number = value->get_ref<const KXDictionary::number_float_t&>();
      return number != 0 && !std::isnan(number);
    }
    case KXDictionary::value_t::boolean:
      return value->get_ref<const KXDictionary::boolean_t&>();
    case KXDictionary::value_t::string:
      return leadingTruth(value->get_ref<const KXDictionary::string_t&>());
    default:
      return false;
  }
}

KXString KXJsonReader::string(const KXDictionary* value) {
  if (value == nullptr || value->is_null()) return std::nullopt;
  if (value->is_string()) return value->get_ref<const KXDictionary::string_t&>();
  try {
    return value->dump(-1, ' ', false, KXDictionary::error_handler_t::replace);
  } catch (...) {
    return std::nullopt;
  }
}

std::shared_ptr<const KXDictionary> KXJsonReader::shared(const KXDictionary* value) {
  if (value == nullptr || value->is_null()) return nullptr;
  return std::make_shared<const KXDictionary>(*value);
}

KXString KXJsonReader::takenString(KXDictionary* value) {
  if (value != nullptr && value->is_string())
    return std::move(value->get_ref<KXDictionary::string_t&>());
  return string(value);
}

std::shared_ptr<const KXDictionary> KXJsonReader::taken(KXDictionary* value) {
  if (value == nullptr || value->is_null()) return nullptr;
  return std::make_shared<const KXDictionary>(std::move(*value));
}

namespace {

bool shorterOrBefore(std::string_view a, std::string_view b) {
  return a.size() != b.size() ? a.size() < b.size() : a < b;
}

}  // namespace

KXJsonReader::Keys::Keys(std::initializer_list<std::string_view> names) : names_(names) {
  order_.resize(names_.size());
  for (std::size_t i = 0; i < order_.size(); ++i) order_[i] = i;
  std::sort(order_.begin(), order_.end(),
            [this](std::size_t a, std::size_t b) { return shorterOrBefore(names_[a], names_[b]); });
}

void KXJsonReader::Keys::find(KXDictionary* object, KXDictionary** values) const {
  std::fill(values, values + names_.size(), nullptr);
  if (object == nullptr || !object->is_object()) return;
  for (auto& [key, value] : object->get_ref<KXDictionary::object_t&>()) {
    const auto at = std::lower_bound(order_.begin(), order_.end(), std::string_view(key),
                                     [this](std::size_t index, std::string_view wanted) {
                                       return shorterOrBefore(names_[index], wanted);
                                     });
    if (at != order_.end() && names_[*at] == key) values[*at] = &value;
  }
}

}  // namespace quor
