#include "member/DlbEcmpMember1Entry.h"

#include <map>

namespace TessarLoadBalance {
namespace {

using Block = DlbEcmpMember1EntryBlock;
using Walk = Zarn::HashMap2018UnsafeIteratorConstGeneric<Block::EntryInternalMap>;

}  // namespace

U32 DlbEcmpMember1Entry::hash(U32 seed) const {
  Zarn::Hash hash(seed);
  hash.hashMix<8>(Zarn::addressOf(ecmpNextHopEntryHandle));
  hash.hashMix<1>(weightIdx);
  return hash.result();
}

constinit Zarn::AllocTrackTypeInfo Block::Rows::memAllocationTracker_{
    "TessarLoadBalance::DlbEcmpMember1Table::EntryBlock"};

Block::EntryInternalMap const& Block::noRows() {
  static EntryInternalMap const none(1, false);
  return none;
}

Block::Rows& Block::own() {
  if (!rows_)
    rows_ = new Rows;
  else if (rows_->uses > 1)
    rows_ = new Rows(*rows_);
  return *rows_;
}

Block::Rows& Block::ownChanging() {
  static U64 identities = 0;
  auto& rows = own();
  rows.identity = ++identities;
  rows.hashesKept = 0;
  return rows;
}

Block::Entry Block::entryInternal(Index offset) const {
  auto const* node = entryInternal().lookupNodeG(offset);
  return node ? node->value_ : Entry{};
}

void Block::entryInternalIs(Index offset, Entry const& row) {
  Entry const stored = row;  // it may be a row of this block
  ownChanging().map.lookupOrNewMember({stored, offset})->value_ = stored;
}

Block::Entry Block::entryInternalDel(Index offset) {
  HN_EntryInternal removed;
  if (entryInternalHas(offset)) ownChanging().map.deleteMemberG(offset, &removed);
  return removed.value_;
}

// A result is no part of the identity.
void Block::neededIndexIs(Index offset, Asic::Index index) {
  if (!entryInternalHas(offset)) return;
  own().map.lookupNodeG(offset)->value_.neededIndexIs(index);
}

U32 Block::hashOfRows(U32 seed) const {
  Zarn::Hash hash(seed);
  forEach([&](Index offset, Entry const& row) {
    hash.hashMix<4>(Zarn::hashSingleAttr(0, offset.value()));
    hash.hashMix<4>(row.hash(0));
  });
  return hash.result();
}

U32 Block::hash(U32 seed) const {
  if (!rows_) return hashOfRows(seed);
  auto& kept = rows_->hashes;
  for (U32 i = 0; i < rows_->hashesKept; ++i)
    if (kept[i].seed == seed) return kept[i].hash;
  auto const result = hashOfRows(seed);
  if (rows_->hashesKept < kept.size()) {
    kept[rows_->hashesKept++] = {seed, result};
  } else {
    kept[rows_->hashToReplace] = {seed, result};
    rows_->hashToReplace = static_cast<U8>((rows_->hashToReplace + 1) % kept.size());
  }
  return result;
}

bool Block::isEq(Block const& a, Block const& b) {
  if (areOneIdentity(a, b)) return true;
  if (a.getBlockSize() != b.getBlockSize()) return false;
  for (Walk inA(a.entryInternal()), inB(b.entryInternal()); inA; ++inA, ++inB)
    if (inA.currNode()->key() != inB.currNode()->key() ||
        !(inA.currNode()->value_ == inB.currNode()->value_))
      return false;
  return true;
}

int operator<=>(Block const& a, Block const& b) {
  if (Block::areOneIdentity(a, b)) return 0;
  auto const order = [](auto const& x, auto const& y) { return (x > y) - (x < y); };
  if (int const byCount = order(a.getBlockSize(), b.getBlockSize())) return byCount;
  for (Walk inA(a.entryInternal()), inB(b.entryInternal()); inA; ++inA, ++inB) {
    if (int const byOffset = order(inA.currNode()->key(), inB.currNode()->key())) return byOffset;
    if (int const byRow = inA.currNode()->value_ <=> inB.currNode()->value_) return byRow;
  }
  return 0;
}

// By offset: the order of the map differs from process to process.
std::ostream& operator<<(std::ostream& out, Block const& block) {
  std::map<U32, Block::Entry> sorted;
  block.forEach(
      [&](Block::Index offset, Block::Entry const& row) { sorted.emplace(offset.value(), row); });
  out << '{';
  char const* separator = "";
  for (auto const& [offset, row] : sorted)
    out << std::exchange(separator, " ") << std::to_string(offset) << ':' << row;
  return out << '}';
}

void Block::deserialize(Zarn::CharRange&, std::string_view) {
  VELL_ASSERT(false, "No String constructor for EntryBlock - has collection",
              "TessarLoadBalance::DlbEcmpMember1Table::EntryBlock cannot be read from a text");
}

}  // namespace TessarLoadBalance
