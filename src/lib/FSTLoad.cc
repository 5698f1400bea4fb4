#include "FSTLoad.h"

#include <sys/stat.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <vector>

#include "FSTBasic.h"
#include "FSTBinary.h"
#include "FSTExpression.h"
#include "FSTMmap.h"
#include "FSTNgram2.h"
#include "FSTNgram3.h"
#include "FSTDynamic.h"
#include "FSTRtn.h"
#include "FSTlib.h"

namespace {

using StreamLoader = FSTGeneric (*)(std::istream&, char const* header, char const* file);

// The expression files being read, outermost first: one that names itself, directly or through
// others, would be read without end.
std::vector<std::string> expressions_open;

// A file's name as the system resolves it, so that "a", "./a" and a link to it are one file.
std::string resolved(char const* file) {
  char path[PATH_MAX];
  return realpath(file, path) ? std::string(path) : std::string(file);
}

// The rest of the header line after its word is the expression.
FSTGeneric load_expression_header(std::istream&, char const* header, char const* file) {
  std::string const self = file ? resolved(file) : std::string();
  if (!self.empty()) {
    for (size_t i = 0; i < expressions_open.size(); ++i) {
      if (expressions_open[i] != self) continue;
      std::string cycle;
      for (size_t j = i; j < expressions_open.size(); ++j) cycle += expressions_open[j] + " -> ";
      FSTFatal("expression file %s refers to itself: %s%s", file, cycle.c_str(), self.c_str());
    }
  }
  // Popped on the way out, also when a stop handler unwinds through here.
  struct Open {
    explicit Open(std::string const& name) : pushed(!name.empty()) {
      if (pushed) expressions_open.push_back(name);
    }
    ~Open() {
      if (pushed) expressions_open.pop_back();
    }
    bool pushed;
  } open(self);
  std::string text = header;
  size_t word = text.find("FSTExpression");
  return FSTExpression(text.substr(word + std::strlen("FSTExpression")));
}

FSTGeneric load_ngram2(std::istream& is, char const* header, char const*) {
  return FSTLoadNgram2(is, header);
}

FSTGeneric load_ngram3(std::istream& is, char const* header, char const*) {
  return FSTLoadNgram3(is, header);
}

FSTGeneric load_basic(std::istream& is, char const* header, char const*) {
  return FSTLoadBasic(is, header);
}

FSTGeneric load_binary(std::istream& is, char const* header, char const* file) {
  return FSTLoadBinary(is, header, file);
}

// The header words, tried in this order. Formats without a reader in this build name
// themselves instead of misreading the file.
struct HeaderReader {
  char const* word;
  StreamLoader load;
};
HeaderReader const header_readers[] = {
    {"FSTBasic", load_basic},   {"FSTBinary", load_binary},
    {"FSTDynamic", FSTLoadDynamic},    {"FSTMmap", FSTLoadMmap},
    {"FSTNgram2", load_ngram2}, {"FSTNgram3", load_ngram3},
    {"FSTRtn", FSTLoadRtn},        {"FSTExpression", load_expression_header},
};

char const* printable(char const* file) { return file ? file : "(null)"; }

FSTGeneric dispatch(std::istream& is, char const* file) {
  bool const standard_input = file && (!*file || std::strcmp(file, "-") == 0);
  FSTReadingPlace place(standard_input ? "standard input" : file);
  long mtime = file && *file ? file_mtime(file) : 0;
  char first;
  if (!(is >> first) || first != '#') {
    // No header: the whole stream is text, MinPlus, unscaled.
    if (is) is.unget();
    is.clear(is.rdstate() & ~std::ios::failbit);
    FSTGeneric m = FSTLoadBasic(is, "");
    if (mtime) m->enable_reload(file, mtime);
    return m;
  }
  std::string header;
  if (!std::getline(is, header))
    FSTFatal("error reading from file %s (no header?)", printable(file));
  std::string word(header.size() + 1, '\0');
  int length = 0;
  if (std::sscanf(header.c_str(), "%s%n", &word[0], &length) != 1) length = 0;
  word.resize(size_t(length));
  StreamLoader load = nullptr;
  bool known = false;
  for (HeaderReader const& reader : header_readers) {
    if (word == reader.word) {
      known = true;
      load = reader.load;
      break;
    }
  }
  if (!known) FSTFatal("don't understand header type %s", word.c_str());
  if (!load)
    FSTFatal("can't load %s: the %s format is not available in this build of t2sfst",
             printable(file), word.c_str());
  FSTGeneric m = load(is, header.c_str(), file);
  if (mtime) m->enable_reload(file, mtime);
  return m;
}

bool load_expression(char const* source, FSTGeneric& result, std::string& error) {
  return FSTExpression(source, result, error);
}

}  // namespace

std::istream& FSTBinaryCin() { return std::cin; }

FSTSemiringBase const* FSTHeaderSemiring(char const* header) {
  if (std::strstr(header, "PlusTimesLog")) return FSTPlusTimesLog;
  if (std::strstr(header, "PlusTimes")) return FSTPlusTimes;
  if (std::strstr(header, "MaxPlus")) return FSTMaxPlus;
  return FSTMinPlus;
}

float FSTHeaderValue(char const* header, char const* keyword, char const* format, float fallback) {
  char const* at = std::strstr(header, keyword);
  float value = fallback;
  if (at) std::sscanf(at, format, &value);
  return value;
}

FSTGeneric FSTLoadStream(std::istream& is) { return dispatch(is, nullptr); }

FSTGeneric FSTLoadFile(char const* file) {
  std::ifstream in(file ? file : "", std::ios::binary);
  if (!in) FSTFatal("can't read file %s", printable(file));
  return dispatch(in, file);
}

FSTGeneric FSTLoad(char const* source) {
  // Standard input, even where a file named "-" exists.
  if (!source || !*source || std::strcmp(source, "-") == 0) return dispatch(FSTBinaryCin(), source);
  FSTGeneric result;
  std::string error;
  if (load_expression(source, result, error)) return result;
  std::ifstream in(source, std::ios::binary);
  if (!in) FSTFatal("can't read file %s or parse as expression\n%s", source, error.c_str());
  return dispatch(in, source);
}

FSTGeneric FSTLoad(std::string const& source) { return FSTLoad(source.c_str()); }
FSTGeneric FSTLoadFile(std::string const& source) { return FSTLoad(source.c_str()); }

FSTGeneric FSTLoadBeside(std::string const& spec, char const* file) {
  // A file that names itself, directly or not, would load forever.
  static int depth = 0;
  struct Nesting {
    Nesting() { ++depth; }
    ~Nesting() { --depth; }
  } nesting;
  if (depth > 32) FSTFatal("file: machines named inside each other more than 32 deep");
  std::string folder = file ? file : "";
  size_t slash = folder.rfind('/');
  folder = slash == std::string::npos ? "" : folder.substr(0, slash + 1);
  std::string path = spec;
  if (!spec.empty() && spec[0] != '/' && !folder.empty() && std::ifstream(folder + spec))
    path = folder + spec;
  // Devices and pipes are no machines to name: reading one may never end.
  struct stat info;
  if (stat(path.c_str(), &info) == 0 && !S_ISREG(info.st_mode))
    FSTFatal("file: %s is not a regular file", path.c_str());
  return FSTLoad(path);
}
