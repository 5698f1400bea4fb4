// The JSGF grammar compiler: a grammar (or a bare expansion) compiled into one weighted
// transducer. Rule bodies are built from single-arc machines with union, concatenation and
// closure; the rules are tied together by a recursive transition network.
#ifndef T2SFST_FSTJSGF_H
#define T2SFST_FSTJSGF_H

#include <iosfwd>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>

#include "FSTGeneric.h"

// Flags, in argument order: b1 drop tags; b2 no output (word arcs output epsilon); b3 mark
// rule boundaries in the output ("<rule>" ... "</rule>", see FSTRtn); b4 wrap the top level in
// "<pause1>" ... "<pause2>"; b5 tolerate references to undefined rules.
//
// Returns whether the grammar compiled; result is set only then. A file that cannot be read is
// fatal. On failure the messages (syntax errors with the input name and line, warnings) go to
// errors.
bool FSTJsgfParseFile(FSTGeneric& result, std::string const& filename, bool b1, bool b2, bool b3,
                      bool b4, bool b5);
bool FSTJsgfParseString(FSTGeneric& result, std::string& errors, char const* text, bool b1, bool b2,
                        bool b3, bool b4, bool b5);
// The same for a file, handing back the messages (warnings too) whatever the outcome.
bool FSTJsgfParseFile(FSTGeneric& result, std::string& messages, std::string const& filename,
                      bool b1, bool b2, bool b3, bool b4, bool b5);

class FSTJsgf_yyFlexLexer;
union FSTJSGF_YYSTYPE;
struct FSTJsgfOptions;

// The parser object: scanner state, messages, options, rule table and the semantic operations
// that the generated parser calls.
class FSTJsgf_yy {
 public:
  FSTJsgf_yy();
  ~FSTJsgf_yy();
  bool parse(std::istream& is, std::string const& name, FSTGeneric& result, std::string& errors,
             bool b1, bool b2, bool b3, bool b4, bool b5);
  // All messages of the last parse, warnings included.
  std::string messages() const { return _messages.str(); }

  // ---- semantic operations ----
  FSTGeneric empty();
  FSTGeneric _void();
  FSTGeneric simple(int in, int out);
  FSTGeneric tag(int label);
  // The alternative's weight (-1: none written) rides as its initial state's potential.
  FSTGeneric series(fst::vector<FSTGeneric>* items, float weight);
  FSTGeneric parallel(fst::vector<FSTGeneric>* alternatives);
  // A parenthesised or bracketed group: parallel, with a warning when its weights are ignored.
  FSTGeneric group(fst::vector<FSTGeneric>* alternatives);
  FSTGeneric optional(FSTGeneric const& m);
  FSTGeneric optimize(FSTGeneric const& m);
  void rule(int name, fst::vector<FSTGeneric>* alternatives, bool is_public);
  bool finish_expression(fst::vector<FSTGeneric>* alternatives);
  void finish_grammar();

  // ---- for the scanner and parser ----
  int lex(FSTJSGF_YYSTYPE* value);
  void error(char const* message);
  void grammar_name(int label);
  // Warns that imports are not implemented, unless the parse resolves them (FSTJsgfCompileFile).
  void import_statement(int label);
  int keyword_label(char const* keyword);

 private:
  friend bool FSTJsgfCompileFile(FSTGeneric&, std::string&, std::string const&,
                                 FSTJsgfOptions const&);
  struct _Imports;

  void _reset();
  bool _run(std::istream& is, std::string const& name);
  std::ostream& _at_line();
  void _warn_if_weights_ignored(fst::vector<FSTGeneric> const& alternatives);
  void _check_references(int rule, FSTGeneric const& m);
  void _import(int label);
  void _add_import_aliases();
  int _rule_label(std::string text);
  void _expand_nonrecursive_rules(fst::vector<std::string> const& names,
                                  fst::vector<FSTGeneric>& machines,
                                  std::map<int, std::set<int>>& calls);

  std::unique_ptr<FSTJsgf_yyFlexLexer> _lexer;
  std::string _name;
  std::ostringstream _messages;
  bool _drop_tags = false, _no_output = false, _mark_rules = false, _pauses = false,
       _allow_undefined = false;
  std::string _grammar_name;
  std::set<int> _public;
  std::map<int, fst::vector<FSTGeneric>> _rules;
  std::set<std::string> _undefined;
  FSTGeneric _result;
  int _tokens = 0;
  // Rule names as the scanner met them, with their lines; each rule definition takes those of
  // its body, so a reference is reported at its own line.
  std::vector<std::pair<int, int>> _mentions;
  size_t _mentions_used = 0;
  std::map<std::pair<int, int>, int> _reference_lines;  // (rule, referenced rule) -> line
  // Import resolution, when enabled: the shared search state, the rules imported under short
  // names (short -> full label), the file each imported rule comes from.
  std::shared_ptr<_Imports> _imports;
  bool _collect_only = false;  // stop after reading the rules (an imported grammar)
  bool _failed = false;        // an error outside the parser's own (an import not found)
  std::map<int, int> _aliases;
  std::map<int, std::string> _rule_source;
};

#endif
