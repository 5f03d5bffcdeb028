// What the C layer's functions share: the border every call crosses (nothing thrown passes
// it), strings the caller frees, JSON texts read with the library's limits.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>
#include <optional>
#include <string>

#include "KXJsonTree.h"
#include "QuorCustomerService/QuorCustomerService.h"
#include "QuorCustomerService/quor_cs.h"

namespace quor {
class QuorHostBase;
}

namespace quor::capi {

// The host base behind a host written in C: for in-process C++ code beside the C layer (the
// host contract's subject), never exported.
QuorHostBase& hostBaseOf(quor_cs_host& host);

// Runs `call` and returns its result; memory running out gives QUOR_CS_ERROR_MEMORY, any other
// exception QUOR_CS_ERROR_INTERNAL (logged). For calls that return a result code.
template <class Call>
int guarded(Call&& call) noexcept {
  try {
    return call();
  } catch (const std::bad_alloc&) {
    return QUOR_CS_ERROR_MEMORY;
  } catch (const std::exception& error) {
    try {
      if (auto logger = KXFwLog::getInstance())
        logger->write(2, 0, "quor_cs", "ERROR: the C API caught: %@", {error.what()});
    } catch (...) {
    }
    return QUOR_CS_ERROR_INTERNAL;
  } catch (...) {
    return QUOR_CS_ERROR_INTERNAL;
  }
}

// The same for calls that return nothing or a value: `fallback` when anything was thrown.
template <class Result, class Call>
Result guardedValue(Result fallback, Call&& call) noexcept {
  try {
    return call();
  } catch (...) {
    return fallback;
  }
}

// A copy of `text` in memory the caller frees with quor_cs_free(); NULL when memory ran out.
inline char* ownedCopy(const std::string& text) noexcept {
  char* copy = static_cast<char*>(std::malloc(text.size() + 1));
  if (copy) std::memcpy(copy, text.c_str(), text.size() + 1);
  return copy;
}

// Writes `text` to `*out` when `out` is not NULL.
inline void give(char** out, const std::optional<std::string>& text) noexcept {
  if (out) *out = text ? ownedCopy(*text) : nullptr;
}

// The one host the C layer installs at a time (a kit, a host written in C, an XMPP host): a
// second one would take the library's interfaces from under the first's services. True when
// `owner` holds it (it was free, or `owner` held it already).
bool claimHost(const void* owner);
// Frees the slot when `owner` holds it.
void releaseHost(const void* owner);
// A host was installed or uninstalled (its own dispatcher with it, or none): the app's
// dispatcher, when it set one, stays the library's, whatever the order of the two.
void keepAppDispatcher();

// One service per desk: a second would share the client's session of the desk with the first
// and cut across its reports. True when `deskId` had none; forget it when the service goes.
bool claimDesk(const std::string& deskId);
void releaseDesk(const std::string& deskId);

// A header's enumerator and the C++ value it stands for: equal, or the build fails.
#define QUOR_CS_SAME(cValue, cxxValue) \
  static_assert(static_cast<int64_t>(cValue) == static_cast<int64_t>(cxxValue), #cValue)

// The bytes of a growable struct (quor_cs_observer, _host_functions, _status) that cover `member`:
// the smallest `size` the library takes.
#define QUOR_CS_SIZE_THROUGH(Struct, member) (offsetof(Struct, member) + sizeof(Struct::member))

// A growable struct from the app: as much as its `size` says (at most the library's own), the
// rest zero (members the app's header did not have are absent). False when `size` is below
// `least` (a caller that did not set it).
template <class Struct>
bool readSized(const Struct& given, std::size_t least, Struct* out) noexcept {
  if (given.size < least) return false;
  std::memset(static_cast<void*>(out), 0, sizeof(Struct));
  std::memcpy(static_cast<void*>(out), &given, std::min(given.size, sizeof(Struct)));
  out->size = sizeof(Struct);
  return true;
}

// Writes `full` into the app's growable struct, no more than its `size` says; false when that
// is below `least`.
template <class Struct>
bool writeSized(const Struct& full, std::size_t least, Struct* to) noexcept {
  const std::size_t size = to->size;
  if (size < least) return false;
  std::memcpy(static_cast<void*>(to), &full, std::min(size, sizeof(Struct)));
  to->size = size;
  return true;
}

// The JSON text `text` parsed with the library's depth limit; absent when it does not parse.
inline std::optional<KXDictionary> parsed(const char* text) {
  if (!text) return std::nullopt;
  return KXJsonTree::parse(text, KXJsonTree::kMaxDepth);
}

}  // namespace quor::capi
