// All direct tables that exist, for the suites that every one of them must pass.

#pragma once

#include <gtest/gtest.h>

#include "config/DlbControlSwTable.h"
#include "config/DlbEcmpControlSwTable.h"
#include "support/Recording.h"

namespace Testing {

using DirectTables =
    ::testing::Types<TessarLoadBalance::DlbEcmpControlTable, TessarLoadBalance::DlbControlTable>;

template <class T>
class DirectTableSuite : public ::testing::Test {
 protected:
  static Vell::Ptr<T> make() { return new T; }
  static auto e(U64 n) { return sampleEntry<typename T::Entry>(n); }
  static std::string text(U64 n) { return Zarn::valueToStrep(e(n)); }

  Recorded<T> at_{make()};
  T& table_ = *at_.table;
};

}  // namespace Testing
