// Compiling a JSGF grammar file together with the grammars it imports, with the checks a user
// of the commands expects. Cost: one parse per grammar file read (each package once).
//
// "import <pkg.rule>;" and "import <pkg.*>;" read pkg.gram or pkg.jsgf from the importing
// grammar's folder, then from each folder of the search path. An imported public rule is known by
// its full name (<pkg.rule>) and, unless the grammar defines a rule of that name itself, by its
// short name (<rule>); the other rules of pkg stay reachable only through those. Imported rules
// are never public in the result. An import that cannot be found, or that names no public rule
// of its grammar, fails the compilation, and so does a grammar without a public rule.
#ifndef T2SFST_FSTJSGFIMPORT_H
#define T2SFST_FSTJSGFIMPORT_H

#include <map>
#include <string>
#include <vector>

#include "FSTGeneric.h"

struct FSTJsgfOptions {
  bool drop_tags = false;        // b1 of the compiler
  bool no_output = false;        // b2
  bool mark_rules = false;       // b3
  bool pauses = false;           // b4
  bool allow_undefined = false;  // b5
  std::vector<std::string> search_path;
  // Every rule stays a nonterminal of the network (by default the rules that do not recurse are
  // substituted into their callers), as a network file keeps them.
  bool keep_rules = false;
  // Rules given from outside, by name without brackets ("contacts" answers <contacts>): each
  // is used where the grammar refers to it and does not define it. Their arcs read and write
  // grammar tokens, as the compiled rules' do.
  std::map<std::string, FSTGeneric> classes;
};

// A class of phrases as a rule's machine: one token a line, "spoken" or "spoken:written" as a
// quoted grammar token reads (blank lines and lines starting with "//" are skipped). Stops
// naming the file when it cannot be read.
FSTGeneric FSTJsgfPhraseClass(std::string const& file);

// Returns whether the grammar compiled; result is set only then. messages receives every
// message of the compiler, warnings included, whatever the outcome. A grammar file that cannot
// be read fails with a message (it is not fatal here).
bool FSTJsgfCompileFile(FSTGeneric& result, std::string& messages, std::string const& filename,
                        FSTJsgfOptions const& options);

// The two sides of a grammar token "spoken:written", split at its last ':' that no backslash
// escapes ("spoken:" writes nothing; "five:05\:00" writes "05:00"); a token without ':' is both.
void FSTJsgfTokenSides(std::string const& token, std::string& spoken, std::string& written);

// A stored copy of a compiled grammar in which each token label is split into its sides: an
// arc whose input is "spoken:written" reads spoken and, where its output is that same token,
// writes written (other outputs, such as tags and rule marks, stay). Linear time.
FSTGeneric FSTJsgfSplitTokens(FSTGeneric const& m);

#endif
