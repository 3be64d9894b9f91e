// Names the tests of a parameterised suite by their rows.
#pragma once

#include <gtest/gtest.h>

#include <string>

// For INSTANTIATE_TEST_SUITE_P over rows that have a member `name`.
template <typename Row>
std::string RowName(const testing::TestParamInfo<Row>& row) {
  return row.param.name;
}
