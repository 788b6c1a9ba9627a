#include <gtest/gtest.h>
#include <json_helper.h>

#include <string>

namespace {

TEST(Json, TakesCommentsAndRefusesEverythingElseWithoutThrowing) {
  using namespace std::string_literals;
  Json::Value value;
  EXPECT_TRUE(jobm::json::parse("// before\n{} /* behind */ // and at the end", value));
  const std::string deep(100000, '[');
  for (const std::string& text :
       {""s, "{\"a\":}"s, "{} {}"s, "{} /* open"s, "[1\0]"s, deep + std::string(100000, ']')}) {
    EXPECT_FALSE(jobm::json::parse(text, value)) << text.substr(0, 40);
  }
}

TEST(Json, StyledTextIndentsByThreeAndCompactTextIsOneLine) {
  Json::Value value;
  ASSERT_TRUE(jobm::json::parse(R"({"b":{"c":1} /*gone*/,"a":["x"]})", value));
  EXPECT_EQ(jobm::json::styled(value),
            "{\n   \"a\" : [ \"x\" ],\n   \"b\" : {\n      \"c\" : 1\n   }\n}\n");
  EXPECT_EQ(jobm::json::compact(value), "{\"a\":[\"x\"],\"b\":{\"c\":1}}\n");
  EXPECT_EQ(jobm::json::textOf(value, "b"), "") << "is no text";
}

}  // namespace
