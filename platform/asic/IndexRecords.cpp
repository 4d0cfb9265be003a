#include "platform/asic/IndexRecords.h"

#include <algorithm>
#include <bit>

namespace Asic {

IndexRecords::~IndexRecords() {
  for (auto const& slot : slots_) delete slot.record;
}

IndexRecord* IndexRecords::find(Vell::ZarnType type, void const* key, U32 hash) const {
  if (slots_.empty()) return nullptr;
  for (auto at = home(hash); slots_[at].record; at = next(at))
    if (slots_[at].hash == hash && slots_[at].record->isOf(type, key)) return slots_[at].record;
  return nullptr;
}

void IndexRecords::insert(std::unique_ptr<IndexRecord> record) {
  if (2 * (used_ + 1) > slots_.size()) grow();
  ++used_;
  auto const hash = record->hash;
  put({record.release(), hash});
}

void IndexRecords::put(Slot const& slot) {
  auto at = home(slot.hash);
  while (slots_[at].record) at = next(at);
  slots_[at] = slot;
}

void IndexRecords::grow() {
  constexpr std::size_t smallest = 16;
  auto const before = std::exchange(slots_, {});
  slots_.resize(std::max(smallest, 2 * before.size()));
  shift_ = 64 - static_cast<U32>(std::countr_zero(slots_.size()));
  for (auto const& slot : before)
    if (slot.record) put(slot);
}

std::unique_ptr<IndexRecord> IndexRecords::extract(IndexRecord const& record) {
  auto hole = home(record.hash);
  while (slots_[hole].record != &record) hole = next(hole);
  std::unique_ptr<IndexRecord> extracted(std::exchange(slots_[hole].record, nullptr));
  --used_;
  // What lies behind moves up, unless it would pass its home: look-ups stop at an empty slot.
  auto const mask = slots_.size() - 1;
  for (auto at = next(hole); slots_[at].record; at = next(at)) {
    auto const behindHome = (at - home(slots_[at].hash)) & mask;
    if (behindHome < ((at - hole) & mask)) continue;
    slots_[hole] = std::exchange(slots_[at], {});
    hole = at;
  }
  return extracted;
}

}  // namespace Asic
