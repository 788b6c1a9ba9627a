/// JSON in tests.
#pragma once

#include <json/writer.h>  // how a failed comparison shows a value

#include <string>

#include "lib/json_helper.h"

namespace test {

/// `text` as JSON, null for anything else.
inline Json::Value parsed(const std::string& text) {
  Json::Value value;
  return jobm::json::parse(text, value) ? value : Json::Value();
}

}  // namespace test
