// The English inverse text normalisation grammars, built as a user builds them and applied to
// recognised sentences as a transcript is normalised: every case of the table, by category.
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <sstream>
#include <vector>

#include "TestUtil.h"

namespace {

struct Case {
  std::string category, spoken, written;
};

std::vector<Case> ReadCases(std::string const& path) {
  std::vector<Case> cases;
  std::ifstream in(path);
  for (std::string line; std::getline(in, line);) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream fields(line);
    Case c;
    std::getline(fields, c.category, '\t');
    std::getline(fields, c.spoken, '\t');
    std::getline(fields, c.written, '\t');
    cases.push_back(c);
  }
  return cases;
}

TEST(ItnGrammar, EveryCaseOfEachCategory) {
  std::string const tool = T2SFST_TOOL;
  std::vector<Case> const cases = ReadCases(std::string(T2SFST_TESTS_DATA) + "/itn/cases.tsv");
  ASSERT_GT(cases.size(), 200u);
  std::string const model = WriteTempFile("itn.t2s", "");
  CommandResult r = RunCommand(tool + " make-model --quiet " + T2SFST_SOURCE +
                               "/grammars/en/itn.gram " + model);
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.err, "");  // the grammars compile without a warning
  std::string spoken;
  for (Case const& c : cases) spoken += c.spoken + "\n";
  r = RunCommand(tool + " apply --rewrite --ignore-case " + model + " < " +
                 WriteTempFile("itn.txt", spoken));
  ASSERT_EQ(r.status, 0) << r.err;
  std::istringstream written(r.out);
  std::map<std::string, std::pair<int, int>> score;  // category -> (right, all)
  for (Case const& c : cases) {
    std::string line;
    std::getline(written, line);
    EXPECT_EQ(line, c.written) << c.category << ": " << c.spoken;
    score[c.category].first += line == c.written;
    ++score[c.category].second;
  }
  EXPECT_GE(score.size(), 10u);
  for (auto const& [category, counts] : score) EXPECT_GE(counts.second, 10) << category;
}

}  // namespace
