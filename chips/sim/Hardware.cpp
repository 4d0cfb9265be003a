#include "chips/sim/Hardware.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cstring>
#include <functional>

#include "chips/sim/RowCodec.h"
#include "platform/vell/Assert.h"

namespace Sim {
namespace {

// A store that neither comes before what stands above it nor after what stands below: a process
// that dies has then done a beginning of the program, and nothing of the rest. Order among
// processors is no matter, since whoever opens the file next does so after the death.
void storeInOrder(U64& word, U64 value) {
  std::atomic_signal_fence(std::memory_order_seq_cst);
  std::atomic_ref(word).store(value, std::memory_order_relaxed);
  std::atomic_signal_fence(std::memory_order_seq_cst);
}

std::string_view brief(std::string_view qualified) {
  return qualified.substr(qualified.rfind(':') + 1);
}

std::string tableList(std::span<TableShape const> shapes) {
  std::string list;
  for (auto const& shape : shapes) list.append(list.empty() ? "" : ", ").append(brief(shape.name));
  return list;
}

// By the number of the operation.
constexpr std::array<std::string_view, 5> operationNames{"", "write", "delete", "outOfRange",
                                                         "refused"};

}  // namespace

Hardware::Hardware(Asic::Chip::Options const& options, FileLayout const& layout,
                   std::span<PointerRule const> rules)
    : layout_(layout),
      switches_(switchesOf(options.switches)),
      crashAfter_(options.crashAfter),
      file_(options.hardware, options.access, layout),
      truth_(layout, rules, [this](U32 table, U64 row) { return this->row(table, row); }),
      operations_(layout.shapes().size()) {
  redo();
  if (switches_.flipRow) flip(*switches_.flipRow);
  file_.nameNewFile();
}

JournalState& Hardware::state() const {
  return *reinterpret_cast<JournalState*>(file_.bytes() + layout_.journalAt());
}

JournalRecord& Hardware::record(U64 number) const {
  return *reinterpret_cast<JournalRecord*>(file_.bytes() + layout_.recordAt(number));
}

// ---- rows ----

std::span<U8 const> Hardware::row(U32 table, U64 row) const {
  auto const& shape = layout_.shapes()[table];
  if (row >= shape.rows) return {};
  std::span<U8 const> const bytes(rowBytes(table, row), shape.rowBytes);
  return isValidRow(bytes) ? bytes : std::span<U8 const>();
}

void Hardware::rowIs(U32 table, U64 row, std::span<U8 const> bytes) {
  VELL_ASSERT(bytes.size() == layout_.shapes()[table].rowBytes && isValidRow(bytes),
              "a whole valid row", layout_.shapes()[table].name, " row ", row, ": ", bytes.size());
  operate(Operation::write, table, row, bytes);
}

void Hardware::rowDel(U32 table, U64 row) { operate(Operation::erase, table, row, {}); }

void Hardware::rowRefused(U32 table, U64 row) { operate(Operation::refused, table, row, {}); }

void Hardware::stateIs(U32 table, U64 row, std::span<U8 const, sizeof(U64)> bytes) {
  VELL_ASSERT(layout_.shapes()[table].rowBytes == bytes.size() && row < rows(table),
              "a row of state", layout_.shapes()[table].name, " row ", row);
  if (isFrozen()) return;
  U64 word;
  std::memcpy(&word, bytes.data(), sizeof word);
  storeInOrder(*reinterpret_cast<U64*>(rowBytes(table, row)), word);
}

// ---- operations ----

void Hardware::operate(Operation operation, U32 table, U64 row, std::span<U8 const> bytes) {
  if (isFrozen()) return;
  if (row >= rows(table)) operation = Operation::outOfRange;
  auto const number = publish({0, row, table, static_cast<U32>(operation)}, bytes);
  applyChecked(record(number));
  storeInOrder(state().applied, number);
  if (changesRows(operation)) count(operation, table);
}

U64 Hardware::publish(JournalRecord content, std::span<U8 const> bytes) {
  auto const number = state().published + 1;
  auto& target = record(number);
  auto* const row = reinterpret_cast<U8*>(&target + 1);
  storeInOrder(target.number, 0);  // the slot's old operation is gone before its bytes are
  target = content;
  std::fill(std::ranges::copy(bytes, row).out, row + layout_.shapes()[content.table].rowBytes,
            U8{0});
  storeInOrder(target.number, number);
  storeInOrder(state().published, number);
  return number;
}

void Hardware::apply(JournalRecord const& record) {
  if (!changesRows(static_cast<Operation>(record.operation))) return;
  auto const& shape = layout_.shapes()[record.table];
  std::copy_n(reinterpret_cast<U8 const*>(&record + 1), shape.rowBytes,
              rowBytes(record.table, record.row));
  if (shape.stateTable != TableShape::none)
    storeInOrder(*reinterpret_cast<U64*>(rowBytes(shape.stateTable, record.row)), 0);
}

void Hardware::applyChecked(JournalRecord const& record) {
  if (!changesRows(static_cast<Operation>(record.operation))) return;
  auto const broken = truth_.checked(record.table, record.row, [&] { apply(record); });
  if (broken.empty()) return;
  auto const breach = Vell::concatenate(
      "operation ", record.number, " (", operationNames[record.operation], " of row ", record.row,
      " of ", layout_.shapes()[record.table].name, ") broke the hardware's truth: ", broken);
  VELL_ASSERT(!switches_.stopAtBreach, "stop-at-breach", breach);
  if (breaches_.size() < mostBreaches)
    breaches_.push_back(breach);
  else
    ++furtherBreaches_;
}

std::vector<std::string> Hardware::breaches() const {
  auto all = breaches_;
  if (furtherBreaches_ > 0)
    all.push_back(Vell::concatenate(furtherBreaches_, " further operations broke it"));
  return all;
}

void Hardware::count(Operation operation, U32 table) {
  auto& counts = operations_[table];
  ++(operation == Operation::write ? counts.writes : counts.deletes);
  if (++operationCount_ == crashAfter_) std::raise(SIGKILL);
}

// ---- opening ----

void Hardware::redo() {
  auto const [published, applied] = state();
  bool const interrupted = published == applied + 1;
  auto const& last = record(published);
  bool const known = published == 0 ? applied == 0 : isSound(last, published);
  if (!known || (published != applied && !interrupted))
    throw HardwareError(file_.path(),
                        "has a damaged journal; restore it from a copy, or delete it to start with "
                        "empty hardware");
  if (!interrupted) return;
  apply(last);
  storeInOrder(state().applied, published);
}

bool Hardware::isSound(JournalRecord const& record, U64 number) const {
  if (record.number != number || record.table >= layout_.shapes().size()) return false;
  std::span<U8 const> const row(reinterpret_cast<U8 const*>(&record + 1),
                                layout_.shapes()[record.table].rowBytes);
  switch (static_cast<Operation>(record.operation)) {
    case Operation::write:
      return record.row < rows(record.table) && isValidRow(row);
    case Operation::erase:
      return record.row < rows(record.table) && std::ranges::all_of(row, std::logical_not<>());
    case Operation::refused:
      return record.row < rows(record.table);
    case Operation::outOfRange:
      return true;
  }
  return false;
}

void Hardware::flip(Switches::RowAddress const& address) {
  auto const shapes = layout_.shapes();
  auto const found = std::ranges::find_if(shapes, [&](auto const& shape) {
    return shape.name == address.table || brief(shape.name) == address.table;
  });
  if (found == shapes.end())
    throw std::runtime_error(
        Vell::concatenate("switch flip-row: the simulated chip has no table \"", address.table,
                          "\"; it has ", tableList(shapes)));
  auto const table = static_cast<U32>(found - shapes.begin());
  if (row(table, address.row).empty())
    throw std::runtime_error(Vell::concatenate(
        "switch flip-row: row ", address.row, " of ", found->name, " in hardware file \"",
        file_.path(), "\" is not valid; name a row that the hardware holds, from 0 to ",
        found->rows - 1));
  rowBytes(table, address.row)[0] ^= 2;
}

// ---- journal ----

std::vector<Asic::Chip::JournalEntry> Hardware::journal(std::size_t most) const {
  std::vector<Asic::Chip::JournalEntry> entries;
  auto const newest = state().published;
  auto const kept = std::min<U64>({most, newest, FileLayout::journalRecords});
  for (U64 left = kept; left > 0; --left) {
    auto const number = newest - left + 1;
    auto const& each = record(number);
    if (!isSound(each, number)) continue;
    entries.push_back({number, std::string(layout_.shapes()[each.table].name),
                       std::string(operationNames[each.operation]), each.row});
  }
  return entries;
}

}  // namespace Sim
