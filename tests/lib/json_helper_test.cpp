#include <gtest/gtest.h>
#include <json_helper.h>

#include <string>

namespace {

std::string nested(std::size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); }

TEST(Json, TakesJsonAndCommentsAndRefusesEverythingElseWithoutThrowing) {
  Json::Value value;
  for (const std::string& text : {std::string("// before\n{} /* behind */ // and at the end"),
                                  std::string(" 5 \r\n"), nested(900)}) {
    EXPECT_TRUE(jobm::json::parse(text, value)) << text;
  }
  for (const std::string& text :
       {std::string(), std::string(R"({"a":})"), std::string("{} {}"), std::string("{}/"),
        std::string("{} /* open"), std::string("[1\0]", 4), nested(100000),
        std::string(100000, '[')}) {
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
