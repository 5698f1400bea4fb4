#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "FST.h"
#include "TestUtil.h"

namespace {

TEST(StringMap, ReservedIdsAndInterning) {
  FSTStringMap map;  // FST_LABELS_FILE is not set for the test binary
  EXPECT_EQ(map.size(), 2);
  EXPECT_EQ(map[""], 0);
  EXPECT_EQ(map["#"], 1);
  EXPECT_STREQ(map[0], "");
  EXPECT_STREQ(map[1], "#");
  EXPECT_EQ(map["a"], 2);
  EXPECT_EQ(map[std::string("a")], 2);
  EXPECT_EQ(map["b"], 3);
  EXPECT_EQ(map.size(), 4);

  // Texts handed out stay valid while the table grows and rehashes.
  char const* a = map[2];
  for (int i = 0; i < 20000; ++i) EXPECT_EQ(map["w" + std::to_string(i)], i + 4);
  EXPECT_EQ(a, map[2]);
  EXPECT_STREQ(map[19999 + 4], "w19999");
  EXPECT_EQ(map["w123"], 127);
  // Bytes above 127 and embedded blanks are ordinary text.
  int e = map["\xc3\xa9t\xc3\xa9 x"];
  EXPECT_STREQ(map[e], "\xc3\xa9t\xc3\xa9 x");
}

TEST(StringMap, PreloadCountsReadAttempts) {
  std::string with_newline = WriteTempFile("labels1", "x y\n");
  std::string without_newline = WriteTempFile("labels2", "p q");
  setenv("FST_LABELS_FILE", with_newline.c_str(), 1);
  testing::internal::CaptureStderr();
  {
    FSTStringMap map;
    EXPECT_EQ(map["x"], 2);
    EXPECT_EQ(map["y"], 3);
    EXPECT_EQ(map.size(), 4);
  }
  setenv("FST_LABELS_FILE", without_newline.c_str(), 1);
  { FSTStringMap map; }
  setenv("FST_LABELS_FILE", "/nonexistent/labels", 1);
  {
    FSTStringMap map;
    EXPECT_EQ(map.size(), 2);
  }
  unsetenv("FST_LABELS_FILE");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "preloaded 3 labels from " + with_newline +
                                                        "\npreloaded 2 labels from " +
                                                        without_newline + "\n");
}

TEST(StringMap, GlobalTablePreloadedInAFreshProcess) {
  std::string labels = WriteTempFile("labels3", "x y\n");
  CommandResult r = RunCommand("FST_LABELS_FILE=" + labels + " " T2SFST_TOOL " labels x y z");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err, "preloaded 3 labels from " + labels + "\n");
  EXPECT_EQ(r.out, "2\tx\n3\ty\n4\tz\n");

  r = RunCommand("FST_LABELS_FILE=/nonexistent/labels " T2SFST_TOOL " labels");
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.out, "0\t\n1\t#\n");

  // FSTLabels adds a file's tokens in order; a token already present keeps its id.
  std::string more = WriteTempFile("labels4", "  q  r\n\tx q\n");
  r = RunCommand(std::string(T2SFST_TOOL) + " labels --file " + more);
  EXPECT_EQ(r.out, "0\t\n1\t#\n2\tq\n3\tr\n4\tx\n");
  r = RunCommand(std::string(T2SFST_TOOL) + " labels --file /nonexistent r");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, "");
}

TEST(StringMap, FSTLabelsOnTheGlobalTable) {
  std::string file = WriteTempFile("labels5", "fstlabels_one fstlabels_two fstlabels_one");
  int before = FSTstring_map.size();
  FSTLabels(file.c_str());
  EXPECT_EQ(FSTstring_map.size(), before + 2);
  EXPECT_EQ(FSTstring_map["fstlabels_one"], before);
  EXPECT_EQ(FSTstring_map["fstlabels_two"], before + 1);
  FSTLabels("/nonexistent/file");
  EXPECT_EQ(FSTstring_map.size(), before + 2);
}

}  // namespace
