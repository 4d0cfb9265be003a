#include "chips/sim/Truth.h"

#include <algorithm>

#include "platform/vell/Assert.h"

namespace Sim {

Truth::Truth(FileLayout const& layout, std::span<PointerRule const> rules, RowAt rowAt)
    : layout_(layout), rules_(rules), rowAt_(std::move(rowAt)) {}

bool Truth::isConcerned(U32 table) const {
  return std::ranges::any_of(
      rules_, [=](auto const& rule) { return rule.from == table || rule.to == table; });
}

// ---- who points where ----

void Truth::countAll() {
  if (!pointers_.empty()) return;
  for (auto const& rule : rules_) pointers_.emplace_back(layout_.shapes()[rule.to].rows);
  // Each table once, whatever number of rules it is in.
  std::vector<U32> counted;
  for (auto const& rule : rules_) {
    if (std::ranges::find(counted, rule.from) != counted.end()) continue;
    counted.push_back(rule.from);
    for (U32 row = 0; row < layout_.shapes()[rule.from].rows; ++row) count(rule.from, row, 1);
  }
}

void Truth::count(U32 table, U64 row, int change) {
  auto const bytes = rowAt_(table, row);
  if (bytes.empty()) return;
  for (std::size_t i = 0; i < rules_.size(); ++i) {
    if (rules_[i].from != table) continue;
    auto const target = rules_[i].target(bytes);
    for (U64 at = target.first; at < U64{target.first} + target.rows; ++at)
      if (at < pointers_[i].size()) pointers_[i][at] += static_cast<U32>(change);
  }
}

// ---- what is broken ----

std::string Truth::danglerOf(PointerRule const& rule, U64 row) const {
  auto const bytes = rowAt_(rule.from, row);
  if (bytes.empty()) return {};
  auto const target = rule.target(bytes);
  for (U64 at = target.first; at < U64{target.first} + target.rows; ++at)
    if (rowAt_(rule.to, at).empty())
      return Vell::concatenate("row ", row, " of ", layout_.shapes()[rule.from].name,
                               " points at row ", at, " of ", layout_.shapes()[rule.to].name,
                               ", which is not valid");
  return {};
}

std::string Truth::breachOf(U32 table, U64 row) const {
  for (std::size_t i = 0; i < rules_.size(); ++i) {
    auto const& rule = rules_[i];
    if (rule.from == table)
      if (auto dangler = danglerOf(rule, row); !dangler.empty()) return dangler;
    if (rule.to == table && rowAt_(table, row).empty() && pointers_[i][row] > 0)
      for (U32 from = 0; from < layout_.shapes()[rule.from].rows; ++from) {
        auto const bytes = rowAt_(rule.from, from);
        if (bytes.empty()) continue;
        auto const target = rule.target(bytes);
        if (row >= target.first && row - target.first < target.rows) return danglerOf(rule, from);
      }
  }
  return {};
}

std::vector<std::string> Truth::contradictions() const {
  std::vector<std::string> danglers;
  for (auto const& rule : rules_)
    for (U32 row = 0; row < layout_.shapes()[rule.from].rows; ++row)
      if (auto dangler = danglerOf(rule, row); !dangler.empty())
        danglers.push_back(std::move(dangler));
  return danglers;
}

}  // namespace Sim
