// The one process-wide label alphabet: label texts interned to dense integer ids, so that ids
// compare across every machine of a process without translation.
#ifndef T2SFST_FSTSTRINGMAP_H
#define T2SFST_FSTSTRINGMAP_H

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

class FSTStringMap {
 public:
  // Creates id 0 (the empty text, epsilon) and id 1 ("#"), then preloads the whitespace-separated
  // tokens of the file named by FST_LABELS_FILE, when it is set and readable.
  FSTStringMap();

  // The id of a text, interning it when new.
  int operator[](std::string const& text);
  int operator[](char const* text);
  // The text of an existing id; no range check.
  char const* operator[](int id) const { return _texts[size_t(id)]; }
  // Without it, map[0] on a non-const table would be ambiguous with the C-string form.
  char const* operator[](int id) { return _texts[size_t(id)]; }
  int size() const { return _size; }

 private:
  struct Hash {
    size_t operator()(std::string const& text) const;
  };
  // Chained buckets, grown along the prime series when the count would exceed the bucket
  // count; nodes never move, so the texts stay put for the id vector.
  std::unordered_map<std::string, int, Hash> _ids;
  std::vector<char const*> _texts;
  int _size;
};

extern FSTStringMap FSTstring_map;

// Interns every whitespace-separated token of a file into FSTstring_map, in file order.
void FSTLabels(char const* file);

// A label's text as one field of a line-oriented file. White space and the backslash become
// \s \t \n \v \f \r \\, and a label that is just "," (the epsilon field) becomes "\,";
// any other text is its own field. FSTUnescapeLabel inverts it (an unknown escape stays as
// written), so every label survives a dump and reload byte for byte.
bool FSTLabelNeedsEscape(char const* text);
std::string FSTEscapeLabel(char const* text);
std::string FSTUnescapeLabel(std::string const& field);

#endif
