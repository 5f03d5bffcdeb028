// Builds, merges and measures ordered JSON trees in time linear in their size. The ordered
// dictionary type searches its keys on every insert, so nothing here inserts through it: objects
// are filled by appending, and a repeated key is resolved afterwards (the last value wins, at
// the place of the key's first occurrence, as the dictionary's own insert would leave it).
// Header-only, so that the library and the tools (desk simulator, replay) share it.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "QuorCustomerService/Host/KXTypes.h"

namespace quor {

class KXJsonTree {
 public:
  // The nesting limit of every body, profile and trace line read: values nested deeper do not
  // parse, so nothing later (a log line, a copy) recurses deeper than this.
  static constexpr int kMaxDepth = 128;

  using Object = KXDictionary::object_t;
  using Entries = Object::Container;

  // Parses `bytes` as JSON; absent when they are not JSON (invalid UTF-8 included) or nest
  // deeper than `maxDepth` levels. The parse itself is iterative.
  static std::optional<KXDictionary> parse(std::string_view bytes, int maxDepth) {
    try {
      KXDictionary root;
      Builder builder(root, maxDepth);
      if (!KXDictionary::sax_parse(bytes.begin(), bytes.end(), &builder)) return std::nullopt;
      return root;
    } catch (...) {
      return std::nullopt;
    }
  }

  // The same with the error's position for people: "line L, column C: what".
  static std::optional<KXDictionary> parse(std::string_view bytes, int maxDepth,
                                           std::string* error) {
    try {
      KXDictionary root;
      Builder builder(root, maxDepth);
      const bool parsed = KXDictionary::sax_parse(bytes.begin(), bytes.end(), &builder);
      if (parsed) return root;
      if (error) {
        *error = builder.tooDeep ? "nested deeper than " + std::to_string(maxDepth) + " levels"
                                 : position(bytes, builder.offset) + ": " + builder.what;
      }
    } catch (...) {
      if (error) *error = "out of memory";
    }
    return std::nullopt;
  }

  // Copies every entry of the object `source` into the object `target`: a key `target` has is
  // overwritten in place, a new key is appended. Linear in both sizes: only the target's own
  // keys are indexed, since the keys of an object (`source`) are unique.
  static void merge(KXDictionary& target, const KXDictionary& source) {
    if (!target.is_object() || !source.is_object() || &target == &source) return;
    Entries& entries = target.get_ref<Object&>();
    const std::size_t own = entries.size();
    std::unordered_map<std::string, std::size_t> index;
    index.reserve(own);
    for (std::size_t i = 0; i < own; ++i) index.emplace(entries[i].first, i);
    entries.reserve(own + source.size());
    for (const auto& [key, value] : source.get_ref<const Object&>()) {
      const auto found = own == 0 ? index.end() : index.find(key);
      if (found != index.end()) {
        entries[found->second].second = value;
      } else {
        entries.emplace_back(key, value);
      }
    }
  }

  // Whether `value` nests deeper than `limit` levels (a scalar has depth 0). Iterative.
  static bool nestsDeeperThan(const KXDictionary& value, int limit) {
    std::vector<std::pair<const KXDictionary*, int>> pending{{&value, 0}};
    while (!pending.empty()) {
      const auto [node, depth] = pending.back();
      pending.pop_back();
      if (!node->is_structured()) continue;
      if (depth + 1 > limit) return true;
      for (const auto& child : *node) {
        if (child.is_structured()) pending.emplace_back(&child, depth + 1);
      }
    }
    return false;
  }

 private:
  // "line L, column C" of a byte offset.
  static std::string position(std::string_view bytes, std::size_t offset) {
    std::size_t line = 1, column = 1;
    for (std::size_t i = 0; i < offset && i < bytes.size(); ++i) {
      if (bytes[i] == '\n') {
        ++line;
        column = 1;
      } else {
        ++column;
      }
    }
    return "line " + std::to_string(line) + ", column " + std::to_string(column);
  }

  // The parser's events turned into a tree, containers kept on an explicit stack.
  class Builder {
   public:
    Builder(KXDictionary& root, int maxDepth) : root_(root), maxDepth_(maxDepth) {}

    bool null() { return put(nullptr); }
    bool boolean(bool value) { return put(value); }
    bool number_integer(KXDictionary::number_integer_t value) { return put(value); }
    bool number_unsigned(KXDictionary::number_unsigned_t value) { return put(value); }
    bool number_float(KXDictionary::number_float_t value, const std::string&) { return put(value); }
    bool string(std::string& value) { return put(std::move(value)); }
    bool binary(KXDictionary::binary_t&) { return false; }

    bool start_object(std::size_t) { return open(KXDictionary::object()); }
    bool key(std::string& key) {
      entries().emplace_back(std::move(key), nullptr);
      return true;
    }
    bool end_object() {
      resolveRepeatedKeys(entries());
      stack_.pop_back();
      return true;
    }
    bool start_array(std::size_t) { return open(KXDictionary::array()); }
    bool end_array() {
      stack_.pop_back();
      return true;
    }

    bool parse_error(std::size_t at, const std::string&, const nlohmann::detail::exception& e) {
      offset = at == 0 ? 0 : at - 1;
      what = e.what();
      const auto colon = what.rfind(": ");
      if (colon != std::string::npos) what = what.substr(colon + 2);
      return false;
    }

    bool tooDeep = false;
    std::size_t offset = 0;
    std::string what;

   private:
    Entries& entries() { return stack_.back()->get_ref<Object&>(); }

    // Where the next value goes: the root, the end of the open array, or the last key added.
    KXDictionary* slot() {
      if (stack_.empty()) return &root_;
      KXDictionary& open = *stack_.back();
      if (open.is_array()) {
        auto& array = open.get_ref<KXDictionary::array_t&>();
        array.emplace_back();
        return &array.back();
      }
      return &entries().back().second;
    }

    bool put(KXDictionary value) {
      *slot() = std::move(value);
      return true;
    }

    bool open(KXDictionary container) {
      if (static_cast<int>(stack_.size()) >= maxDepth_) {
        tooDeep = true;
        return false;
      }
      KXDictionary* target = slot();
      *target = std::move(container);
      stack_.push_back(target);
      return true;
    }

    // A repeated key keeps its first place and takes the last value.
    static void resolveRepeatedKeys(Entries& entries) {
      // Up to this many keys a pairwise scan beats a hash index, and finds nothing to do
      // without allocating in the usual case of unique keys.
      constexpr std::size_t kScan = 32;
      const std::size_t n = entries.size();
      if (n < 2) return;
      if (n <= kScan && !anyRepeated(entries)) return;
      std::vector<std::size_t> firstOf(n);
      bool repeated = false;
      if (n <= kScan) {
        for (std::size_t i = 0; i < n; ++i) {
          firstOf[i] = i;
          for (std::size_t j = 0; j < i; ++j) {
            if (entries[j].first == entries[i].first) {
              firstOf[i] = firstOf[j];
              repeated = true;
              break;
            }
          }
        }
      } else {
        std::unordered_map<std::string_view, std::size_t> first;
        first.reserve(n);
        for (std::size_t i = 0; i < n; ++i) {
          const auto [it, added] = first.emplace(entries[i].first, i);
          firstOf[i] = it->second;
          repeated |= !added;
        }
      }
      if (!repeated) return;
      for (std::size_t i = 0; i < n; ++i) {
        if (firstOf[i] != i) entries[firstOf[i]].second = std::move(entries[i].second);
      }
      Entries kept;
      kept.reserve(n);
      for (std::size_t i = 0; i < n; ++i) {
        if (firstOf[i] == i) kept.emplace_back(entries[i].first, std::move(entries[i].second));
      }
      entries.swap(kept);
    }

    // Pairwise over at most kScan keys; a key's length and its first and last bytes, packed in
    // one number, rule most pairs out without reading the keys.
    static bool anyRepeated(const Entries& entries) {
      uint64_t prints[32];
      const std::size_t n = std::min<std::size_t>(entries.size(), 32);
      for (std::size_t i = 0; i < n; ++i) {
        const std::string& key = entries[i].first;
        prints[i] = key.empty() ? 0
                                : (uint64_t{key.size()} << 16) |
                                      (uint64_t{static_cast<unsigned char>(key.front())} << 8) |
                                      static_cast<unsigned char>(key.back());
      }
      for (std::size_t i = 1; i < n; ++i) {
        for (std::size_t j = 0; j < i; ++j) {
          if (prints[j] == prints[i] && entries[j].first == entries[i].first) return true;
        }
      }
      return false;
    }

    KXDictionary& root_;
    const int maxDepth_;
    std::vector<KXDictionary*> stack_;
  };
};

}  // namespace quor
