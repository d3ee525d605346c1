#pragma once
/// Name of a table row in the test report: its field `why`.

#include <string>

#include "gtest/gtest.h"

struct RowName {
    template <typename Row>
    std::string operator()(const testing::TestParamInfo<Row>& info) const {
        return info.param.why;
    }
};
