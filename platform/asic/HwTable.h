// One table of the hardware, as software holds on to it. A chip plug-in derives from it.
//
// Invariants
//  1. Answers wait here until the owner of the chip has them delivered; while no response machine is
//     active they stay, in their order.
//  2. No acknowledgement is delivered in the midst of an operation of the table that it is for: it could
//     be taken for that of a write which is yet to come. It waits for the next time.
//  3. Writes that are to be acknowledged have ascending numbers. Of an index only the newest write
//     can be answered, once; whatever else an acknowledgement belongs to is gone, and it is dropped.
//
// Threading: the thread of the owning agent.

#pragma once

#include <deque>
#include <memory>
#include <vector>

#include "platform/asic/IndexUserTracker.h"
#include "platform/asic/ReadResponse.h"
#include "platform/asic/WriteResponse.h"
#include "platform/vell/Node.h"

namespace Asic {

class ReadResponseSm;
class WriteResponseSm;

class HwTable : public Vell::Node {
 public:
  Vell::ZarnType typeData() const override;

  /// Indices in use as far as the allocators of this hardware table know; told when a table joins
  /// one.
  U32 usageCount() const { return usageCount_; }
  void usageCountInc(U32 indices) { usageCount_ += indices; }

  // Reads.

  /// Takes an answer of the hardware to a read, to be delivered later. For chips.
  void readResponseIs(ReadResponse response) { readResponses_.push_back(std::move(response)); }
  /// Delivers what has been taken by now, oldest first, while there is an active response machine,
  /// and returns how many answers that were. For `Chip::poll`. If a client's handler throws, the
  /// exception passes out; its answer counts as delivered, and those behind it stay.
  U64 deliverReadResponses();
  /// Answers that wait to be delivered.
  std::size_t readResponses() const { return readResponses_.size(); }
  /// The active response machine, or null. A machine enters and removes itself.
  ReadResponseSm* readResponseSm() const { return readResponseSm_; }
  void readResponseSmIs(ReadResponseSm* machine) { readResponseSm_ = machine; }

  // Writes that are to be acknowledged.

  /// Numbers a write of the row, which overtakes the writes of it before. A table that wants
  /// responses calls it before the hook that writes.
  void writeIs(Index index);
  /// The row is deleted: no acknowledgement of a write before belongs to anything any more.
  void writesOvertaken(Index index);
  /// The number of the newest write of the row, for the chip to answer with; 0 if every write of it
  /// was answered or overtaken.
  U64 newestWrite(Index index) const {
    return index.value() < newestWrites_.size() ? newestWrites_[index.value()] : 0;
  }
  /// Rows whose newest write was not answered yet.
  std::size_t unansweredWrites() const { return unansweredWrites_; }
  /// Takes an acknowledgement, to be delivered later. For chips.
  void writeResponseIs(WriteResponse response) { writeResponses_.push_back(response); }
  /// As `deliverReadResponses`; none while the machine's table is in an operation. Acknowledgements of overtaken writes, and second ones, are dropped
  /// and not counted.
  U64 deliverWriteResponses();
  /// Acknowledgements that wait to be delivered.
  std::size_t writeResponses() const { return writeResponses_.size(); }
  WriteResponseSm* writeResponseSm() const { return writeResponseSm_; }
  void writeResponseSmIs(WriteResponseSm* machine) { writeResponseSm_ = machine; }

 private:
  friend class IndexUserTracker::Stub;

  U32 usageCount_ = 0;
  std::unique_ptr<IndexUserTracker> indexUserTracker_;
  std::deque<ReadResponse> readResponses_;
  ReadResponseSm* readResponseSm_ = nullptr;
  std::deque<WriteResponse> writeResponses_;
  WriteResponseSm* writeResponseSm_ = nullptr;
  std::vector<U64> newestWrites_;  ///< by index, as far as any was written; 0: answered
  std::size_t unansweredWrites_ = 0;
  U64 lastWrite_ = 0;
};

}  // namespace Asic
