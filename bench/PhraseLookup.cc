// The hash-map baselines that decoding is measured against, over the phrases of a phrases.gram
// (as t2sfst_bench_inputs writes it: "spoken:written" tokens; or one quoted "spoken words:WRITTEN"
// token an alternative, as realistic_corpus.py writes them).
//   t2sfst_phrase_lookup GRAMMAR < LINES    each line looked up whole; a miss prints an empty line
//   t2sfst_phrase_lookup --rewrite GRAMMAR < LINES
//                                          from the left, the longest run of words that is a
//                                          phrase is replaced by its written form (one lookup per
//                                          run length tried), other words copied; words are
//                                          taken to be separated by single spaces
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace {

struct Phrases {
  std::vector<std::string> spoken;  // the keys' storage: the map's views point into it
  std::unordered_map<std::string_view, std::string> written;
  size_t max_words = 0;

  explicit Phrases(char const* path) {
    std::ifstream grammar(path);
    std::vector<std::pair<std::string, std::string>> read;
    std::string line;
    while (std::getline(grammar, line)) {
      size_t start = line.find_first_of("=|");
      if (start == std::string::npos || line[0] == '#') continue;
      std::string rest = line.substr(start + 1);
      std::string token, said, shown;
      size_t words = 0;
      size_t const open = rest.find('"'), close = rest.rfind('"');
      if (open != std::string::npos && close > open) {
        // One quoted token of several words: "spoken words:WRITTEN".
        std::string const quoted = rest.substr(open + 1, close - open - 1);
        size_t const colon = quoted.rfind(':');
        said = quoted.substr(0, colon);
        shown = colon == std::string::npos ? quoted : quoted.substr(colon + 1);
        words = size_t(std::count(said.begin(), said.end(), ' ')) + 1;
        rest.clear();
      }
      std::istringstream tokens(rest);
      while (tokens >> token) {
        if (token == ";") break;
        if (token.back() == ';') token.pop_back();
        size_t colon = token.find(':');
        said += (said.empty() ? "" : " ") + token.substr(0, colon);
        shown += (shown.empty() ? "" : " ") + token.substr(colon + 1);
        ++words;
      }
      if (said.empty()) continue;
      max_words = std::max(max_words, words);
      read.emplace_back(std::move(said), std::move(shown));
    }
    spoken.reserve(read.size());
    written.reserve(read.size());
    for (auto& [said, shown] : read) {
      spoken.push_back(std::move(said));
      written.emplace(spoken.back(), std::move(shown));
    }
  }
};

void Rewrite(Phrases const& phrases, std::string_view line, std::string& out) {
  std::vector<size_t> starts;  // of the words, and one past the last word's end
  for (size_t k = 0; k < line.size();) {
    starts.push_back(k);
    size_t space = line.find(' ', k);
    k = space == std::string_view::npos ? line.size() + 1 : space + 1;
  }
  starts.push_back(line.size() + 1);
  size_t const n = starts.size() - 1;
  for (size_t w = 0; w < n;) {
    if (w) out += ' ';
    size_t run = std::min(phrases.max_words, n - w);
    for (; run > 0; --run) {
      auto found = phrases.written.find(line.substr(starts[w], starts[w + run] - 1 - starts[w]));
      if (found == phrases.written.end()) continue;
      out += found->second;
      break;
    }
    if (run == 0) out.append(line.substr(starts[w], starts[w + 1] - 1 - starts[w]));
    w += std::max<size_t>(run, 1);
  }
}

}  // namespace

int main(int argc, char** argv) {
  bool const rewrite = argc == 3 && std::strcmp(argv[1], "--rewrite") == 0;
  if (argc != 2 && !rewrite) return 2;
  Phrases const phrases(argv[argc - 1]);
  // Read in large blocks and written once a block, as t2sfst apply does.
  std::vector<char> buffer(1 << 20);
  std::string out;
  size_t held = 0;
  for (;;) {
    size_t got = std::fread(buffer.data() + held, 1, buffer.size() - held, stdin);
    size_t const filled = held + got;
    size_t start = 0;
    for (char const* nl; (nl = static_cast<char const*>(
                              std::memchr(buffer.data() + start, '\n', filled - start)));) {
      std::string_view line(buffer.data() + start, size_t(nl - buffer.data()) - start);
      if (rewrite) {
        Rewrite(phrases, line, out);
      } else {
        auto found = phrases.written.find(line);
        if (found != phrases.written.end()) out += found->second;
      }
      out += '\n';
      start = size_t(nl - buffer.data()) + 1;
    }
    std::fwrite(out.data(), 1, out.size(), stdout);
    out.clear();
    held = filled - start;
    std::memmove(buffer.data(), buffer.data() + start, held);
    if (got == 0) break;
    if (held == buffer.size()) buffer.resize(2 * buffer.size());
  }
  return 0;
}
