#include "chips/sim/ReadEngine.h"

#include <algorithm>
#include <numeric>

namespace Sim {

Asic::TransactionId ReadEngine::begin(std::optional<U32> row) {
  Asic::TransactionId const id = ++lastId_;
  if (!row) {
    bool const lost = endsToLose_ > 0;
    if (lost) --endsToLose_;
    reads_.push_back({id, 0, rows_, !lost, delay_});
  } else if (*row < rows_) {
    reads_.push_back({id, *row, *row + 1, false, delay_});
  } else {
    reads_.push_back({id, 0, 0, true, delay_});
  }
  return id;
}

void ReadEngine::tick() {
  for (auto& read : reads_)
    if (read.delay > 0) --read.delay;
}

std::optional<ReadAnswer> ReadEngine::next() {
  // The oldest first: a later read is never due before it.
  if (reads_.empty() || reads_.front().delay > 0) return {};
  auto read = reads_.front();
  reads_.pop_front();
  auto const answer = answerOf(read);
  if (read.owed() == 0) return answer;
  if (!interleaved_) {
    reads_.push_front(read);
    return answer;
  }
  // Its next turn comes behind those that are due as well.
  auto const waiting =
      std::ranges::find_if(reads_, [](Read const& each) { return each.delay > 0; });
  reads_.insert(waiting, read);
  return answer;
}

ReadAnswer ReadEngine::answerOf(Read& read) {
  if (read.nextRow < read.endRow) return {read.id, read.nextRow++};
  read.tellsEnd = false;
  return {read.id, {}};
}

U64 ReadEngine::owed() const {
  return std::accumulate(reads_.begin(), reads_.end(), U64{0},
                         [](U64 sum, Read const& read) { return sum + read.owed(); });
}

}  // namespace Sim
