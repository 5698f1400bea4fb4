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

namespace {

// The escape letter of a byte that cannot stand in a field, or 0.
char escape_letter(char c) {
  switch (c) {
    case ' ': return 's';
    case '\t': return 't';
    case '\n': return 'n';
    case '\v': return 'v';
    case '\f': return 'f';
    case '\r': return 'r';
    case '\\': return '\\';
    default: return 0;
  }
}

}  // namespace

bool FSTLabelNeedsEscape(char const* text) {
  if (text[0] == ',' && text[1] == 0) return true;
  for (char const* c = text; *c; ++c)
    if (escape_letter(*c)) return true;
  return false;
}

std::string FSTEscapeLabel(char const* text) {
  if (!FSTLabelNeedsEscape(text)) return text;
  if (text[0] == ',' && text[1] == 0) return "\\,";
  std::string field;
  for (char const* c = text; *c; ++c) {
    char letter = escape_letter(*c);
    if (letter) {
      field += '\\';
      field += letter;
    } else {
      field += *c;
    }
  }
  return field;
}

std::string FSTUnescapeLabel(std::string const& field) {
  if (field.find('\\') == std::string::npos) return field;
  std::string text;
  for (size_t i = 0; i < field.size(); ++i) {
    if (field[i] != '\\' || i + 1 == field.size()) {
      text += field[i];
      continue;
    }
    char const next = field[++i];
    switch (next) {
      case 's': text += ' '; break;
      case 't': text += '\t'; break;
      case 'n': text += '\n'; break;
      case 'v': text += '\v'; break;
      case 'f': text += '\f'; break;
      case 'r': text += '\r'; break;
      case '\\': text += '\\'; break;
      case ',': text += ','; break;
      default: text += '\\'; text += next; break;
    }
  }
  return text;
}
