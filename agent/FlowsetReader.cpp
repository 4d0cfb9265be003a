#include "agent/FlowsetReader.h"

#include <fmt/format.h>

#include <algorithm>

#include "agent/Answers.h"
#include "agent/Failure.h"
#include "agent/Words.h"
#include "read/FlowsetRow.h"

namespace DlbAgent {
namespace {

using TessarLoadBalance::FlowsetRow;

}  // namespace

FlowsetReader::FlowsetReader(std::string chipName)
    : chipName_(std::move(chipName)),
      runner_(TessarLoadBalance::dlbEcmpFlowsetTableReadFactory()),
      hasHooks_(runner_.attachUtil(chipName_)) {}

Figures FlowsetReader::figures() const {
  auto const operations = chip_->operations(Table::names.qualified);
  return {.hardwareWrites = operations.writes, .hardwareDeletes = operations.deletes};
}

void FlowsetReader::start(Vell::Ptr<Asic::Chip> const& chip) {
  chip_ = chip;
  runner_.start(chip);
}

Flowset FlowsetReader::one(U64 index) {
  needReadBack();
  if (index < table().minIndex() || index > table().maxIndex())
    throw Failure(fmt::format("no flowset {}; their indices go from {} to {}", index,
                              table().minIndex(), table().maxIndex()));
  came_.clear();
  table().readReqIs(static_cast<U32>(index), [this](std::any const& answer) { take(answer); });
  awaitEnd(1, [](U64, U64) {});
  if (came_.empty()) didNotEnd(1, "its end came instead of the row");
  return came_.front();
}

std::vector<Flowset> FlowsetReader::all(Progress const& progress) {
  needReadBack();
  came_.clear();
  came_.reserve(rowsOfTable());
  table().readAllReqIs(Table::ResponseNotify::eachEntry,
                       [this](std::any const& answer) { take(answer); });
  awaitEnd(rowsOfTable(), progress);
  std::ranges::sort(came_, {}, &Flowset::index);
  return std::move(came_);
}

void FlowsetReader::needReadBack() const {
  if (!hasHooks_ || !table().hwTable())
    throw Failure(
        fmt::format("chip \"{}\" cannot read flowsets back: it has no hardware for {}; "
                    "choose another one with --chip",
                    chipName_, name()));
}

void FlowsetReader::take(std::any const& answer) {
  auto const& [index, entry] = std::any_cast<Table::Response const&>(answer);
  auto const* const row = FlowsetRow::of(entry);
  if (!row)
    throw Failure(
        fmt::format("chip \"{}\" answers for flowset {} without port and member; its "
                    "plug-in must answer with rows of the class FlowsetRow",
                    chipName_, index.value()));
  came_.push_back({index.value(), row->assigned, row->portAssignment, row->memberAssignment});
}

/// The table removes the request when the read has ended.
void FlowsetReader::awaitEnd(U64 ofRows, Progress const& progress) {
  auto const end = awaitAnswers(
      *chip_, [this] { return table().readRequestMap().empty(); },
      [&] { progress(came_.size(), ofRows); });
  if (end == AnswersEnd::nothingOwed) didNotEnd(ofRows, "the hardware owes no more answers");
  if (end == AnswersEnd::silent)
    didNotEnd(ofRows, fmt::format("the hardware owes {} and has been silent for {} seconds",
                                  counted(chip_->answersOutstanding(), "answer", "answers"),
                                  patienceSeconds));
}

void FlowsetReader::didNotEnd(U64 ofRows, std::string_view why) {
  table().readReqDelAll();
  throw Failure(fmt::format("the read did not end: {} of {} came, and {}; read again", came_.size(),
                            counted(ofRows, "row", "rows"), why));
}

}  // namespace DlbAgent
