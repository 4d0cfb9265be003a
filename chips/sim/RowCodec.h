// Packed rows: an entry as the bits of one hardware row, worked out from its field list.
//
// Bit n of a row is bit n % 8 of byte n / 8. Bit 0 says that the row is valid; the fields follow in
// list order, each with its lowest bit first and with nothing between them; the bits behind the
// last field are 0.
//
// A field type beyond numbers and truth values brings a specialisation of `FieldCodec`.

#pragma once

#include <algorithm>
#include <array>
#include <concepts>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

#include "chips/sim/Fingerprint.h"
#include "containers/MapField.h"
#include "platform/vell/Assert.h"
#include "platform/zarn/Fields.h"

namespace Sim {

/// Appends numbers to a row of zeros.
class BitWriter {
 public:
  explicit BitWriter(std::span<U8> row) : row_(row) {}

  void put(U64 value, U32 bits) {
    for (U32 done = 0, taken; done < bits; done += taken, at_ += taken) {
      taken = std::min(8 - at_ % 8, bits - done);
      auto const part = value >> done & ((1U << taken) - 1);
      row_[at_ / 8] = static_cast<U8>(row_[at_ / 8] | part << at_ % 8);
    }
  }
  /// Leaves bits as they are.
  void skip(U32 bits) { at_ += bits; }

 private:
  std::span<U8> row_;
  U32 at_ = 0;
};

/// Takes the numbers out again, in the order in which they were put.
class BitReader {
 public:
  explicit BitReader(std::span<U8 const> row) : row_(row) {}

  U64 take(U32 bits) {
    U64 value = 0;
    for (U32 done = 0, taken; done < bits; done += taken, at_ += taken) {
      taken = std::min(8 - at_ % 8, bits - done);
      auto const part = static_cast<U64>(row_[at_ / 8] >> at_ % 8) & ((1U << taken) - 1);
      value |= part << done;
    }
    return value;
  }

 private:
  std::span<U8 const> row_;
  U32 at_ = 0;
};

/// How a field lies in a row: its width, and both directions.
template <class Member>
struct FieldCodec;

template <std::unsigned_integral Member>
struct FieldCodec<Member> {
  static constexpr U32 bits = Zarn::FieldType<Member>::bits;
  static void pack(BitWriter& row, Member value) { row.put(value, bits); }
  static void unpack(BitReader& row, Member& value) { value = static_cast<Member>(row.take(bits)); }
  static std::string misfit(std::string_view, Member) { return {}; }
};

/// A class over a number of so many bits.
template <class Member>
requires std::same_as<decltype(Member::bits), U32 const>
struct FieldCodec<Member> {
  static constexpr U32 bits = Member::bits;
  static void pack(BitWriter& row, Member value) { row.put(value.value(), bits); }
  static void unpack(BitReader& row, Member& value) { value = Member(row.take(bits)); }
  static std::string misfit(std::string_view, Member) { return {}; }
};

/// A pointer is the software's own and takes nothing of a row.
template <class Node>
struct FieldCodec<Vell::Ptr<Node>> {
  static constexpr U32 bits = 0;
  static void pack(BitWriter&, Vell::Ptr<Node> const&) {}
  static void unpack(BitReader&, Vell::Ptr<Node>&) {}
  static std::string misfit(std::string_view, Vell::Ptr<Node> const&) { return {}; }
};

/// A map of numbers takes a row's fixed number of slots: each a bit that says whether it is used,
/// the key, the value; used slots first, in ascending order of the keys, so that equal maps are
/// equal bits. Members beyond the slots are left out, those of the highest keys.
template <Zarn::NumberMap Member>
struct FieldCodec<Member> {
  static constexpr U32 slots = 64;
  static constexpr U32 keyBits = Zarn::FieldType<Member>::keyBits;
  static constexpr U32 valueBits = Zarn::FieldType<Member>::bits;
  static constexpr U32 bits = slots * (1 + keyBits + valueBits);

  static void pack(BitWriter& row, Member const& map) {
    U32 used = 0;
    for (auto const& [key, value] : Zarn::sortedElements(map)) {
      if (used++ == slots) return;
      row.put(1, 1);
      row.put(key, keyBits);
      row.put(value, valueBits);
    }
    row.skip((slots - used) * (1 + keyBits + valueBits));
  }
  static void unpack(BitReader& row, Member& map) {
    for (U32 slot = 0; slot < slots; ++slot) {
      bool const used = row.take(1) != 0;
      auto const key = static_cast<typename Member::Key>(row.take(keyBits));
      auto const value = static_cast<Zarn::NumberMapValue<Member>>(row.take(valueBits));
      if (used) Zarn::elementIs(map, key, value);
    }
  }
  /// Why the map does not fit, or nothing.
  static std::string misfit(std::string_view name, Member const& map) {
    if (map.count() <= slots) return {};
    return Vell::concatenate(name, " has ", map.count(), " members and a row has room for ", slots,
                             "; leave some out");
  }
};

inline bool isValidRow(std::span<U8 const> row) { return (row[0] & 1) != 0; }

template <class Entry>
class RowCodec {
  template <class Field>
  using CodecOf = FieldCodec<typename std::remove_cvref_t<Field>::Type>;

  static constexpr U32 bits_ = [] {
    U32 bits = 1;
    Zarn::FieldOps<Entry>::forEach(
        [&](auto const& each) { bits += CodecOf<decltype(each)>::bits; });
    return bits;
  }();

 public:
  static constexpr U32 bytes = (bits_ + 7) / 8;
  using Row = std::array<U8, bytes>;
  /// Differs when a row would have to be read differently: other fields, widths or order.
  static constexpr U64 fingerprint = [] {
    Fingerprint print;
    Zarn::FieldOps<Entry>::forEach([&](auto const& each) {
      print.mix(each.name);
      print.mix(U64{CodecOf<decltype(each)>::bits});
    });
    return print.value();
  }();

  /// A valid row with every field 0.
  static Row blank() { return {1}; }

  static Row pack(Entry const& entry) {
    Row row{};
    BitWriter writer(row);
    writer.put(1, 1);
    Zarn::FieldOps<Entry>::forEach(
        [&](auto const& each) { CodecOf<decltype(each)>::pack(writer, entry.*each.member); });
    return row;
  }

  /// Why the entry does not fit into a row, or nothing.
  static std::string misfit(Entry const& entry) {
    std::string why;
    Zarn::FieldOps<Entry>::forEach([&](auto const& each) {
      if (why.empty()) why = CodecOf<decltype(each)>::misfit(each.name, entry.*each.member);
    });
    return why;
  }

  /// The entry of a valid row of `bytes` bytes.
  static Entry unpack(std::span<U8 const> row) {
    Entry entry;
    BitReader reader(row);
    reader.take(1);
    Zarn::FieldOps<Entry>::forEach(
        [&](auto const& each) { CodecOf<decltype(each)>::unpack(reader, entry.*each.member); });
    return entry;
  }
};

}  // namespace Sim
