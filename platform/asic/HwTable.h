// One table of the hardware, as software holds on to it. A chip plug-in derives from it.

#pragma once

#include <deque>
#include <memory>

#include "platform/asic/IndexUserTracker.h"
#include "platform/asic/ReadResponse.h"
#include "platform/vell/Node.h"

namespace Asic {

class ReadResponseSm;

class HwTable : public Vell::Node {
 public:
  Vell::ZarnType typeData() const override;

  /// Indices in use as far as the allocators of this hardware table know; told when a table joins
  /// one.
  U32 usageCount() const { return usageCount_; }
  void usageCountInc(U32 indices) { usageCount_ += indices; }

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

 private:
  friend class IndexUserTracker::Stub;

  U32 usageCount_ = 0;
  std::unique_ptr<IndexUserTracker> indexUserTracker_;
  std::deque<ReadResponse> readResponses_;
  ReadResponseSm* readResponseSm_ = nullptr;
};

}  // namespace Asic
