#include <gtest/gtest.h>
#include <json_helper.h>

#include <string>

namespace {

std::string nested(std::size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); }

TEST(Json, TakesJsonAndComments) {
  for (const std::string& text :
       {std::string(R"({"a":[1,2.5,"x",null,true]})"), std::string(" 5 \r\n"),
        std::string("// before\n{} /* behind */ // and at the end"), nested(900)}) {
    Json::Value value;
    EXPECT_TRUE(jobm::json::parse(text, value)) << text;
  }
}

TEST(Json, RefusesEverythingElseWithoutThrowing) {
  for (const std::string& text :
       {std::string(), std::string("text"), std::string("{"), std::string(R"({"a":})"),
        std::string("[1,]]"), std::string("{} {}"), std::string("{}x"), std::string("{}/"),
        std::string("{} /* open"), std::string("[1\0]", 4), nested(100000),
        std::string(100000, '[')}) {
    Json::Value value;
    EXPECT_FALSE(jobm::json::parse(text, value)) << text.substr(0, 40);
  }
  Json::Value value;
  EXPECT_FALSE(jobm::json::parse({}, value));
}

TEST(Json, StyledTextIndentsByThreeAndCompactTextIsOneLine) {
  Json::Value value;
  ASSERT_TRUE(jobm::json::parse(R"({"b":{"c":1} /*gone*/,"a":["x"]})", value));
  EXPECT_EQ(jobm::json::styled(value),
            "{\n   \"a\" : [ \"x\" ],\n   \"b\" : {\n      \"c\" : 1\n   }\n}\n");
  EXPECT_EQ(jobm::json::compact(value), "{\"a\":[\"x\"],\"b\":{\"c\":1}}\n");
}

TEST(Json, TextOfReadsOnlyStringsOfObjects) {
  Json::Value value;
  ASSERT_TRUE(jobm::json::parse(R"({"text":"x","number":1,"null":null})", value));
  EXPECT_EQ(jobm::json::textOf(value, "text"), "x");
  for (const char* key : {"number", "null", "absent"}) {
    EXPECT_EQ(jobm::json::textOf(value, key), "") << key;
  }
  EXPECT_EQ(jobm::json::textOf(value["number"], "text"), "");
}

}  // namespace
