// The baseline that whole-line decoding is measured against: a hash map from each phrase of a
// phrases.gram (as t2sfst_bench_inputs writes it: "spoken:written" tokens) to its written form,
// looked up once per input line. Usage: t2sfst_phrase_lookup GRAMMAR < LINES > OUTPUTS
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <unordered_map>

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  std::ifstream grammar(argv[1]);
  std::unordered_map<std::string, std::string> phrases;
  std::string line;
  while (std::getline(grammar, line)) {
    size_t start = line.find_first_of("=|");
    if (start == std::string::npos || line[0] == '#') continue;
    std::istringstream tokens(line.substr(start + 1));
    std::string token, spoken, written;
    while (tokens >> token) {
      if (token == ";") break;
      if (token.back() == ';') token.pop_back();
      size_t colon = token.find(':');
      spoken += (spoken.empty() ? "" : " ") + token.substr(0, colon);
      written += (written.empty() ? "" : " ") + token.substr(colon + 1);
    }
    phrases.emplace(spoken, written);
  }
  std::ios::sync_with_stdio(false);
  std::cin.tie(nullptr);
  while (std::getline(std::cin, line)) {
    auto found = phrases.find(line);
    std::cout << (found == phrases.end() ? "" : found->second) << '\n';
  }
  return 0;
}
