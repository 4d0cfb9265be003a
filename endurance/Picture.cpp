#include "endurance/Picture.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>

#include "agent/ChainTables.h"
#include "agent/NamedTable.h"
#include "agent/Session.h"
#include "chips/sim/FileLayout.h"
#include "endurance/Trials.h"

namespace Endurance {

using namespace DlbAgent;

// ---- bytes ----

Image::Image(std::string const& file) {
  std::ifstream stream(file, std::ios::binary | std::ios::ate);
  if (!stream) return;
  bytes_.resize(static_cast<std::size_t>(stream.tellg()));
  stream.seekg(0);
  stream.read(reinterpret_cast<char*>(bytes_.data()), static_cast<std::streamsize>(bytes_.size()));
  Sim::FileHeader header;
  std::memcpy(&header, bytes_.data(), sizeof header);
  for (U64 table = 0; table < header.tables; ++table) {
    Sim::DirectoryEntry entry;
    std::memcpy(&entry, bytes_.data() + sizeof header + table * sizeof entry, sizeof entry);
    regions_.emplace(entry.name.data(), Region{entry.firstRow, entry.rows, entry.rowBytes});
  }
}

void Image::restoreTo(std::string const& file) const {
  if (bytes_.empty()) {
    std::remove(file.c_str());
    return;
  }
  std::ofstream stream(file, std::ios::binary | std::ios::in | std::ios::out);
  if (!stream) stream.open(file, std::ios::binary);
  stream.write(reinterpret_cast<char const*>(bytes_.data()),
               static_cast<std::streamsize>(bytes_.size()));
  if (!stream.flush()) throw Fault(file + " cannot be written");
}

std::span<U8 const> Image::row(std::string_view table, U64 row) const {
  auto const at = regions_.find(table);
  if (at == regions_.end() || row >= at->second.rows) return {};
  return std::span(bytes_).subspan(at->second.first + row * at->second.rowBytes,
                                   at->second.rowBytes);
}

void Image::forEachRow(RowVisitor const& visitor) const {
  for (auto const& [name, region] : regions_)
    for (U64 number = 0; number < region.rows; ++number) {
      auto const bytes = row(name, number);
      if (std::ranges::any_of(bytes, [](U8 byte) { return byte != 0; }))
        visitor(name, number, bytes);
    }
}

void Image::checkNeeded(std::vector<Asic::Chip::JournalEntry> const& operations, Image const& after,
                        std::string const& when) const {
  for (auto const& each : operations) {
    if (std::ranges::equal(row(each.table, each.row), after.row(each.table, each.row)))
      throw Fault(fmt::format("{}: row {} of {} was right, and there was a {} on it", when,
                              each.row, each.table, each.operation));
  }
}

// ---- what traffic sees ----

namespace {

/// The rows of a table that the open chip holds.
template <class T>
HeldRows<T> rowsOf(Vell::Ptr<T> const& table, Vell::Ptr<Asic::Chip> const& chip,
                   std::string const& chipName) {
  Asic::TableRunner runner(table);
  runner.attachUtil(chipName);
  runner.start(chip);
  HeldRows<T> rows;
  for (typename T::SyncedEntryMap::Iterator at(table->syncedEntryMap()); at; at.advance())
    rows.emplace(at.key().value(), at->value_);
  table->utilIs(nullptr);
  return rows;
}

class Painter {
 public:
  Painter(std::string const& chipName, Vell::Ptr<Asic::Chip> const& chip) {
    auto const read = [&]<class T>(Vell::Ptr<T> const& table) {
      return rowsOf<T>(table, chip, chipName);
    };
    nextHops_ = read(Vell::Ptr<NextHopTable>(new NextHopTable));
    members_ = read(Vell::Ptr<MemberTable>(new MemberTable));
    adjacencies_ = read(Vell::Ptr<AdjacencyTable>(new AdjacencyTable));
    forEachOf(groups_, [&]<class T>(OfGroup<T>& groups) {
      groups.rows = read(Vell::Ptr<T>(new T(Vell::String(groupWords<T>.section))));
    });
  }

  void paint(Picture& picture) const {
    for (auto const& each : nextHops_) ++picture.things[nextHopText(each.second)];
    for (auto const& each : members_) ++picture.things["member " + memberText(each.first)];
    forEachOf(groups_, [&]<class T>(OfGroup<T> const& groups) {
      for (auto const& each : groups.rows) ++picture.things[groupText<T>(each.second)];
    });
    for (auto const& [row, adjacency] : adjacencies_) {
      auto text = fmt::format("adjacency {} at", row);
      forEachOf(groups_, [&]<class T>(OfGroup<T> const& groups) {
        if (auto const at = groups.rows.find(adjacency.group); at != groups.rows.end())
          text += ' ' + groupText<T>(at->second);
      });
      ++picture.things[text];
    }
  }

 private:
  template <class T>
  struct OfGroup {
    HeldRows<T> rows;
  };

  static std::string nextHopText(NextHopTable::Entry const& entry) {
    return fmt::format("next hop {}", NamedTable<NextHopTable>::seenText(entry));
  }
  std::string memberText(U32 row) const {
    auto const at = members_.find(row);
    if (at == members_.end()) return "nothing";
    auto const nextHop = nextHops_.find(at->second.ecmpNextHopEntry);
    return fmt::format("weight {} {}", at->second.weightIdx,
                       nextHop == nextHops_.end() ? "nothing" : nextHopText(nextHop->second));
  }
  template <class T>
  std::string groupText(typename T::Entry const& entry) const {
    auto text = fmt::format("{} ", groupWords<T>.kind);
    if constexpr (Asic::Trait::needsEntries<T>) {
      auto const rows = static_cast<U32>(entry.countSecondary.value());
      text += fmt::format("valid {} rows {}:", entry.secondaryBlockValid, rows);
      if (!entry.secondaryBlockValid) return text;
      for (U32 i = 0; i < std::max(rows, 1u); ++i)
        text += " [" + memberText(entry.ecmpSecondaryBlockPtr + i) + ']';
    } else {
      text += NamedTable<T>::seenText(entry);
    }
    return text;
  }

  HeldRows<NextHopTable> nextHops_;
  HeldRows<MemberTable> members_;
  HeldRows<AdjacencyTable> adjacencies_;
  OfGroupTables<OfGroup> groups_;
};

}  // namespace

Picture pictureOf(std::string const& chipName, std::string const& file) {
  Picture picture;
  Image const image(file);
  image.forEachRow([&](std::string_view table, U64 row, std::span<U8 const> bytes) {
    if (!findChainType(table))
      ++picture.things[fmt::format("{} {}: {:02x}", table, row, fmt::join(bytes, ""))];
  });
  auto const chip = chipNamed(chipName);
  chip->open({.hardware = file, .access = Asic::Chip::Access::copy});
  Painter(chipName, chip).paint(picture);
  return picture;
}

std::string Picture::difference(Picture const& is, Picture const& shouldBe) {
  for (auto const& [thing, count] : shouldBe.things) {
    auto const at = is.things.find(thing);
    if (at == is.things.end()) return "missing: " + thing;
    if (at->second != count)
      return fmt::format("{} instead of {} times: {}", at->second, count, thing);
  }
  for (auto const& each : is.things)
    if (!shouldBe.things.contains(each.first)) return "too much: " + each.first;
  return {};
}

}  // namespace Endurance
