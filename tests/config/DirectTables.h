// All direct tables that exist, for the suites that every one of them must pass.

#pragma once

#include <gtest/gtest.h>

#include "config/DlbControlSwTable.h"
#include "config/DlbEcmpControlSwTable.h"
#include "config/DlbEcmpDlbId0To63EnableSwTable.h"
#include "config/DlbEcmpDlbId64To127EnableSwTable.h"
#include "config/DlbEcmpFlowsetSwTable.h"
#include "config/DlbEcmpGroupSwTable.h"
#include "config/DlbEcmpPortControlSwTable.h"
#include "config/DlbEcmpQualityMapSwTable.h"
#include "config/DlbEcmpQuantizationThresholdSwTable.h"
#include "support/Recording.h"

namespace Testing {

using DirectTables = ::testing::Types<
    TessarLoadBalance::DlbEcmpControlTable, TessarLoadBalance::DlbControlTable,
    TessarLoadBalance::DlbEcmpQuantizationThresholdTable, TessarLoadBalance::DlbEcmpQualityMapTable,
    TessarLoadBalance::DlbEcmpPortControlTable, TessarLoadBalance::DlbEcmpDlbId0To63EnableTable,
    TessarLoadBalance::DlbEcmpDlbId64To127EnableTable, TessarLoadBalance::DlbEcmpFlowsetTable,
    TessarLoadBalance::DlbEcmpGroupTable>;

template <class T>
class DirectTableSuite : public ::testing::Test {
 protected:
  static constexpr bool keyIsIndex = Asic::Trait::isKnownIndexTable<T>;

  static Vell::Ptr<T> make() { return new T; }
  static auto k(U32 number) { return sampleKey<typename T::Key>(number); }
  static auto e(U64 n) { return sampleEntry<typename T::Entry>(n); }
  static std::string text(U64 n) { return Zarn::valueToStrep(e(n)); }

  Recorded<T> at_{make()};
  T& table_ = *at_.table;
};

}  // namespace Testing
