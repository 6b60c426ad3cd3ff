// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <string>

namespace KTEST {

/// Names each test of a table after the `name` of its row.
struct NameOfRow {
    template <class Row>
    std::string operator()(const ::testing::TestParamInfo<Row>& row) const {
        return row.param.name;
    }
};

} // namespace KTEST
