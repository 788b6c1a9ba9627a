#include "lib/comm_path.h"
#include "lib/json_helper.h"
#include "support/test.h"

using namespace test;

namespace {

using namespace std::string_literals;

TEST(CommPath, names_that_lead_elsewhere_are_refused) {
  for (const std::string& name : {"."s, ".."s, "a/b"s, "a\0b"s}) {
    EXPECT_EQ(jobm::jobPath("kind", name) + jobm::jobPath(name, "job"), "") << name;
  }
  EXPECT_EQ(jobm::jobPath("IFTTT", "..KEPT"), "/tarnvale/run/downloaded-job/ifttt/..KEPT");
}

TEST(CommPath, deleting_a_tree_follows_no_link) {
  const fs::path folder = "/tmp/var";
  EXPECT_EQ(jobm::mkDir(folder / "tree/.hidden//deep/") + jobm::mkDir(folder / "kept/deep"), 0);
  for (const char* link : {"tree/.hidden/deep/link", "link"}) {
    fs::create_symlink(folder / "kept", folder / link);
  }
  EXPECT_EQ(jobm::rmDir(folder / "tree") + jobm::rmDir(folder / "link"), 0);
  EXPECT_TRUE(fs::exists(folder / "kept/deep"));
}

TEST(Json, may_have_comments_and_nothing_else_is_taken) {
  Json::Value value;
  EXPECT_TRUE(jobm::json::parse("// before\n{} /* behind */ // and at the end", value));
  EXPECT_EQ(jobm::json::styled(value), "{}\n") << "the comments are gone";
  for (const std::string& text : {""s, "{} {}"s, "{} /* open"s, "[1\0]"s, std::string(5000, '[')}) {
    value = 1;
    EXPECT_FALSE(jobm::json::parse(text, value)) << text;
    EXPECT_TRUE(value.isNull()) << "nobody can take a part for the whole";
  }
}

}  // namespace
