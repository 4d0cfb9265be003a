// The keys of level-1 groups: an L3 adjacency, and one that is reached through a VXLAN underlay. The
// two have the same fields, and are never the same key.

#pragma once

#include <compare>
#include <ostream>

#include "platform/l3/L3AdjIdKeyType.h"
#include "platform/vell/ModuleInspectData.h"
#include "platform/zarn/Fields.h"
#include "platform/zarn/Hash.h"

namespace TessarL3Common {

struct L3AdjIdKey {
  U32 adjId = 0;
  L3AdjIdKeyType type = L3AdjIdKeyType::unknown;

  static constexpr auto fields() {
    return Zarn::fieldList("TessarL3Common::L3AdjIdKey",
                           Zarn::field(0x82, "adjId", &L3AdjIdKey::adjId),
                           Zarn::field(0x83, "type", &L3AdjIdKey::type));
  }
  /// Its place among the keys of next hops, for index allocators.
  static Vell::ZarnType keyType();

  U32 hash(U32 seed) const {
    return Zarn::hashSingleAttr(seed, U64{static_cast<U8>(type)} << 32 | adjId);
  }
  /// Key equality for publications, on two pointers to keys.
  static bool isEq(void const* a, void const* b) {
    return *static_cast<L3AdjIdKey const*>(a) == *static_cast<L3AdjIdKey const*>(b);
  }
  void deserialize(Zarn::CharRange& range, std::string_view name) {
    Zarn::FieldOps<L3AdjIdKey>::read(range, *this, name);
  }

  friend auto operator<=>(L3AdjIdKey const&, L3AdjIdKey const&) = default;
  friend std::ostream& operator<<(std::ostream& out, L3AdjIdKey const& key) {
    return Zarn::FieldOps<L3AdjIdKey>::write(out, key);
  }
};

struct VxlanL3UnderlayAdjIdKey {
  U32 adjId = 0;
  L3AdjIdKeyType type = L3AdjIdKeyType::unknown;

  static constexpr auto fields() {
    return Zarn::fieldList("TessarL3Common::VxlanL3UnderlayAdjIdKey",
                           Zarn::field(0x82, "adjId", &VxlanL3UnderlayAdjIdKey::adjId),
                           Zarn::field(0x83, "type", &VxlanL3UnderlayAdjIdKey::type));
  }
  /// Its place among the keys of next hops, for index allocators.
  static Vell::ZarnType keyType();

  U32 hash(U32 seed) const {
    Zarn::Hash hash(seed);
    hash.hashMix<4>(adjId);
    hash.hashMix<1>(static_cast<U8>(type));
    return hash.result();
  }
  /// Key equality for publications, on two pointers to keys.
  static bool isEq(void const* a, void const* b) {
    return *static_cast<VxlanL3UnderlayAdjIdKey const*>(a) ==
           *static_cast<VxlanL3UnderlayAdjIdKey const*>(b);
  }
  void deserialize(Zarn::CharRange& range, std::string_view name) {
    Zarn::FieldOps<VxlanL3UnderlayAdjIdKey>::read(range, *this, name);
  }

  friend auto operator<=>(VxlanL3UnderlayAdjIdKey const&, VxlanL3UnderlayAdjIdKey const&) = default;
  friend std::ostream& operator<<(std::ostream& out, VxlanL3UnderlayAdjIdKey const& key) {
    return Zarn::FieldOps<VxlanL3UnderlayAdjIdKey>::write(out, key);
  }
};

}  // namespace TessarL3Common
