#include "platform/asic/GenericIndexAllocator.h"

#include <algorithm>
#include <vector>

#include "platform/vell/Assert.h"
#include "platform/zarn/Hash.h"

namespace Asic {

GenericIndexAllocator::~GenericIndexAllocator() {
  nodeFlagSet(freedAtZeroFlag, false);
  auto const records = std::move(records_);  // their ends find an allocator without keys
  byIndex_.clear();
}

// ---- tables ----

void GenericIndexAllocator::setTableAttr(SwTable const& table, TableAttr attr) {
  VELL_ASSERT(attr.keys && attr.holds, "attr.keys && attr.holds",
              "a table enters an allocator without saying what its keys are");
  if (!findKeys(attr.keyType)) keyTypes_.emplace_back(attr.keyType, attr.keys);
  tableAttr_.insert_or_assign(&table, std::move(attr));
  smallestTableIs();
}

void GenericIndexAllocator::tableAttrDel(SwTable const& table) {
  auto const left = tableAttr_.extract(&table);
  if (left.empty()) return;
  smallestTableIs();
  std::vector<Index> orphans;
  records_.forEach([&](IndexRecord const& record) {
    if (record.type == left.mapped().keyType && !isHeldBeside(record, nullptr))
      orphans.push_back(record.first);
  });
  for (auto const index : orphans) markIndexAvailable(index, left.mapped().keyType);
}

void GenericIndexAllocator::sizeIs(U32 indices) {
  isSizeAsked_ = true;
  U32 const wanted = std::min(indices, Index::exhausted);
  if (wanted <= size_) return;
  auto const before = std::exchange(size_, wanted);
  grow(before, size_);
}

/// Nobody has told by now how many indices there are: the assumption holds from here on.
void GenericIndexAllocator::needSize() {
  if (size_ == 0 && isSizeAsked_) sizeIs(sizeIfUnknown);
}

void GenericIndexAllocator::smallestTableIs() {
  smallestTable_ = ~U32{0};
  for (auto const& [table, attr] : tableAttr_)
    if (attr.rows != 0) smallestTable_ = std::min(smallestTable_, attr.rows);
}

U32 GenericIndexAllocator::sizeFor(SwTable const& table) const {
  auto const found = tableAttr_.find(&table);
  bool const isTold = found != tableAttr_.end() && found->second.rows != 0;
  return isTold ? std::min(size(), found->second.rows) : size();
}

/// Whether the asking table has the rows before `end`. The table is looked up only where tables of
/// different sizes share the allocator, and beyond the end of the smallest.
bool GenericIndexAllocator::hasRows(SwTable const* asking, U64 end) const {
  return end <= smallestTable_ || !asking || end <= sizeFor(*asking);
}

/// Whether the table has the record's key, and rows for it.
bool GenericIndexAllocator::isHeldBy(TableAttr const& table, IndexRecord const& record) {
  return table.keyType == record.type && table.hasRows(U64{record.first.value()} + record.count) &&
         table.holds(record.key);
}

/// Whether a table has the record's key: any but `asking`, if that is given.
bool GenericIndexAllocator::isHeldBeside(IndexRecord const& record, SwTable const* asking) const {
  return std::ranges::any_of(tableAttr_, [&](auto const& each) {
    return each.first != asking && isHeldBy(each.second, record);
  });
}

// ---- keys ----

IndexKeyType const* GenericIndexAllocator::findKeys(Vell::ZarnType type) const {
  for (auto const& [known, keys] : keyTypes_)
    if (known == type) return keys;
  return nullptr;
}

IndexKeyType const& GenericIndexAllocator::keysOf(Vell::ZarnType type) const {
  auto const* const keys = findKeys(type);
  VELL_ASSERT(keys, "the key's type has entered with a table",
              type.module ? type.data().name : "no type");
  return *keys;
}

auto GenericIndexAllocator::hashed(Vell::ZarnType type, void const* key) const -> Hashed {
  auto const& keys = keysOf(type);
  return {type, &keys, key, keys.hash(key, type.number)};
}

IndexRecord const* GenericIndexAllocator::find(Hashed const& key) const {
  return records_.find(key.type, key.key, key.hash);
}

IndexRecord const* GenericIndexAllocator::recordAt(Index index) const {
  return index.value() < byIndex_.size() ? byIndex_[index.value()] : nullptr;
}

Index GenericIndexAllocator::indexForKey(Vell::ZarnType keyType, void const* key,
                                         SwTable const* asking) const {
  auto const* const found = find(hashed(keyType, key));
  return found && hasRows(asking, U64{found->first.value()} + found->count) ? found->first
                                                                            : Index();
}

auto GenericIndexAllocator::keyForIndex(Index index, Vell::ZarnType) const -> KeyForIndex {
  KeyForIndex answer;
  if (auto const* const record = recordAt(index)) {
    answer.gif_.type_ = record->type;
    answer.gif_.key_ = record->key;
  }
  return answer;
}

U32 GenericIndexAllocator::getBlockSize(Vell::ZarnType keyType, void const* key) const {
  return runOf(keyType, keysOf(keyType), key);
}

bool GenericIndexAllocator::isIndexVerticallyShared(Index index, Vell::ZarnType,
                                                    SwTable const& asking) const {
  auto const* const record = recordAt(index);
  if (!record) return false;
  auto const own = tableAttr_.find(&asking);
  bool const isOwn = own != tableAttr_.end() && isHeldBy(own->second, *record);
  return !isOwn && isHeldBeside(*record, &asking);
}

// ---- indices ----

Index GenericIndexAllocator::newRun(Vell::ZarnType keyType, void const* key, U32 count,
                                    SwTable const* asking) {
  auto const wanted = hashed(keyType, key);
  if (auto const* const held = find(wanted))
    return hasRows(asking, U64{held->first.value()} + held->count) ? held->first : Index();
  if (count == 0) return {};
  needSize();
  auto const first = takeFor(wanted, count, asking);
  if (!first.isExhausted()) enter(wanted, first, count);
  return first;
}

/// Where every table that has the key has rows, or else where the asking one has.
Index GenericIndexAllocator::takeFor(Hashed const& key, U32 count, SwTable const* asking) {
  if (smallestTable_ >= size_) return take(count, size_);
  U32 const limit = asking ? sizeFor(*asking) : size_;
  U32 common = limit;
  for (auto const& [table, attr] : tableAttr_)
    if (attr.rows != 0 && attr.rows < common && attr.keyType == key.type && attr.holds(key.key))
      common = attr.rows;
  auto const first = take(count, common);
  return first.isExhausted() && common < limit ? take(count, limit) : first;
}

bool GenericIndexAllocator::requestIndexForKey(Index index, Vell::ZarnType keyType, void const* key,
                                               SwTable const* asking) {
  auto const wanted = hashed(keyType, key);
  U32 const count = getBlockSize(keyType, key);
  if (!hasRows(asking, U64{index.value()} + count)) return false;
  if (auto const* const held = find(wanted)) return held->first == index;
  needSize();
  if (count == 0 || index.value() >= size_ || count > size_ - index.value()) return false;
  if (!takeAt(index, count)) return false;
  enter(wanted, index, count);
  return true;
}

void GenericIndexAllocator::enter(Hashed const& key, Index first, U32 count) {
  auto record = std::make_unique<IndexRecord>(key.type, key.keys, key.key, key.hash, first, count);
  U64 const end = U64{first.value()} + count;
  if (byIndex_.size() < end) byIndex_.resize(std::max(end, byIndex_.size() * U64{2}));
  std::fill_n(byIndex_.begin() + first.value(), count, record.get());
  used_ += count;
  records_.insert(std::move(record));
}

void GenericIndexAllocator::release(IndexRecord const& gone) {
  auto const record = records_.extract(gone);
  std::fill_n(byIndex_.begin() + record->first.value(), record->count, nullptr);
  used_ -= record->count;
  giveBack(record->first, record->count);
}

void GenericIndexAllocator::markIndexAvailable(Index index, Vell::ZarnType) {
  if (auto const* const record = recordAt(index)) release(*record);
}

void GenericIndexAllocator::releaseIndexFromTable(Vell::ZarnType keyType, void const* key,
                                                  SwTable const& table) {
  auto const* const found = find(hashed(keyType, key));
  if (found && !isHeldBeside(*found, &table)) release(*found);
}

}  // namespace Asic
