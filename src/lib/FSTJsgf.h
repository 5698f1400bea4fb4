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
  FSTGeneric optional(FSTGeneric const& m);
  FSTGeneric optimize(FSTGeneric const& m);
  void rule(int name, fst::vector<FSTGeneric>* alternatives, bool is_public);
  bool finish_expression(fst::vector<FSTGeneric>* alternatives);
  void finish_grammar();

  // ---- for the scanner and parser ----
  int lex(FSTJSGF_YYSTYPE* value);
  void error(char const* message);
  void grammar_name(int label);
  void import_statement();
  int keyword_label(char const* keyword);

 private:
  void _reset();
  std::ostream& _at_line();
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
};

#endif
