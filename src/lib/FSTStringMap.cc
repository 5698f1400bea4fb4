#include "FSTStringMap.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>

size_t FSTStringMap::Hash::operator()(std::string const& text) const {
  uint64_t h = 0;
  for (char c : text) h = 5 * h + uint64_t(int64_t(static_cast<signed char>(c)));
  return size_t(h);
}

namespace {

// Counts read attempts, not tokens: a file ending in white space adds one last empty read.
int intern_tokens(FSTStringMap& map, std::istream& in) {
  int attempts = 0;
  std::string token;
  do {
    token.clear();
    in >> token;
    map[token];
    ++attempts;
  } while (in.good());
  return attempts;
}

}  // namespace

FSTStringMap::FSTStringMap() : _size(0) {
  (*this)[std::string()];
  (*this)["#"];
  char const* file = std::getenv("FST_LABELS_FILE");
  if (!file) return;
  std::ifstream in(file);
  if (!in) return;
  int count = intern_tokens(*this, in);
  std::fprintf(stderr, "preloaded %d labels from %s\n", count, file);
}

int FSTStringMap::operator[](std::string const& text) {
  auto found = _ids.find(text);
  if (found != _ids.end()) return found->second;
  auto inserted = _ids.emplace(text, _size).first;
  _texts.push_back(inserted->first.c_str());
  return _size++;
}

int FSTStringMap::operator[](char const* text) { return (*this)[std::string(text)]; }

FSTStringMap FSTstring_map;

void FSTLabels(char const* file) {
  std::ifstream in(file);
  if (!in) return;
  intern_tokens(FSTstring_map, in);
}
