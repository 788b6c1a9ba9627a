/// JSON that a test has written down itself.
#pragma once

#include <gtest/gtest.h>
#include <json_helper.h>

#include <string>

namespace test {

inline Json::Value parsed(const std::string& text) {
  Json::Value value;
  EXPECT_TRUE(jobm::json::parse(text, value)) << text;
  return value;
}

}  // namespace test
