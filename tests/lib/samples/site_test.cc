// The scratch site every raw-sample test runs against: time tags are
// milliseconds of the day, settled before the first test.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <fstream>

#include "time/TTConv.h"
#include "lib/samples/sample_support.h"

namespace sample_test {
namespace {
std::string root;

class ScratchSite : public ::testing::Environment {
 public:
  void SetUp() override {
    char tmpl[] = "/tmp/heron-samples-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    root = tmpl;
    ASSERT_EQ(system(("mkdir -p " + root + "/projects/p/o").c_str()), 0);
    std::ofstream(root + "/projects/p/o/channel_config") << "timetag msecs ;\n";
    setenv("HERON", root.c_str(), 1);
    setenv("PROJECT", "p", 1);
    setenv("OPS", "o", 1);
    TTConv::init();
    ASSERT_EQ(TTConv::type(), msecs);
  }
  void TearDown() override { EXPECT_EQ(system(("rm -rf " + root).c_str()), 0); }
};

::testing::Environment* const site = ::testing::AddGlobalTestEnvironment(new ScratchSite);
}  // namespace

std::string writeScratch(const std::string& name, const std::string& bytes) {
  const std::string path = root + "/" + name;
  std::ofstream(path, std::ios::binary) << bytes;
  return path;
}

}  // namespace sample_test
