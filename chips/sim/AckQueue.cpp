#include "chips/sim/AckQueue.h"

namespace Sim {

void AckQueue::post(Asic::WriteResponse const& outcome) {
  if (happens(faults_.lost)) return;
  postOnce(outcome);
  if (happens(faults_.doubled)) postOnce(outcome);
}

void AckQueue::postOnce(Asic::WriteResponse const& outcome) {
  Turn turn{now_, ++posted_};
  if (happens(faults_.late)) turn.first += 1 + random_() % mostLate;
  if (happens(faults_.reordered)) turn.second = random_() % posted_;
  owed_.emplace(turn, outcome);
}

std::optional<Asic::WriteResponse> AckQueue::next() {
  auto const first = owed_.begin();
  if (first == owed_.end() || first->first.first > now_) return {};
  auto const outcome = first->second;
  owed_.erase(first);
  return outcome;
}

}  // namespace Sim
