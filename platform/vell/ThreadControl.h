// Whether the process runs more than one thread over the tables' nodes: set when nodes are shared
// between threads.
//
// Set once, before the second thread starts, and never cleared while it runs: what is plain when it
// is clear (memory from the slabs) is locked when it is set.

#pragma once

namespace Vell {

class ThreadControl {
 public:
  static inline bool tsp_ = false;
};

}  // namespace Vell
