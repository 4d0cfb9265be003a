#include "agent/Tracing.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <map>
#include <optional>

#include "agent/ChainTables.h"
#include "agent/Failure.h"
#include "agent/Words.h"
#include "platform/zarn/Trace.h"

namespace DlbAgent {
namespace {

constexpr std::string_view statistics = "SwTableStat";

std::optional<unsigned> readLevel(std::string_view text) {
  auto const [outcome, level] = readNumber(text);
  if (outcome != NumberText::Outcome::number || level >= Zarn::TraceHandle::levels) return {};
  return static_cast<unsigned>(level);
}

/// The levels of "5" or "0-9" as bits; 0 if it is neither.
U32 readRange(std::string_view text) {
  auto const dash = text.find('-');
  auto const first = readLevel(text.substr(0, dash));
  auto const last = dash == text.npos ? first : readLevel(text.substr(dash + 1));
  if (!first || !last || *first > *last) return 0;
  return static_cast<U32>(largestOf(*last + 1) & ~((U64{1} << *first) - 1));
}

U32 readLevels(std::string_view text) {
  U32 mask = 0;
  for (bool more = true; more;) {
    auto const comma = text.find(',');
    auto const range = readRange(text.substr(0, comma));
    if (range == 0) return 0;
    mask |= range;
    more = comma != text.npos;
    if (more) text.remove_prefix(comma + 1);
  }
  return mask;
}

std::string_view handleName(std::string_view name, Catalogue const& catalogue) {
  if (name == statistics) return statistics;
  auto const* const chained = findChainType(name);
  auto const* const table = chained ? chained : catalogue.find(name);
  return table ? table->qualifiedName() : std::string_view();
}

}  // namespace

void traceIs(std::vector<std::string> const& options, Catalogue const& catalogue) {
  std::vector<std::string> errors;
  std::map<std::string_view, U32> masks;
  for (auto const& option : options) {
    auto const equals = option.find('=');
    auto const name = std::string_view(option).substr(0, equals);
    auto const handle = handleName(name, catalogue);
    auto const mask =
        equals == option.npos ? 0 : readLevels(std::string_view(option).substr(equals + 1));
    if (handle.empty()) {
      auto known = catalogue.names();
      for (auto const* type : chainTypes()) known.push_back(type->name());
      known.push_back(statistics);
      errors.push_back(fmt::format("--trace {}: no table \"{}\"; there are: {}", option, name,
                                   fmt::join(known, ", ")));
    } else if (mask == 0) {
      errors.push_back(
          fmt::format("--trace {}: levels are numbers up to {}, written as {}=5,6,8 or {}=0-9",
                      option, Zarn::TraceHandle::levels - 1, name, name));
    }
    masks[handle] |= mask;
  }
  if (!errors.empty()) throw Failure(std::move(errors));
  for (auto const& [handle, mask] : masks) Zarn::TraceHandle::levelsIs(handle, mask);
}

}  // namespace DlbAgent
