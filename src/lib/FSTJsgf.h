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
#include <vector>

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
  // What the scanner returns for blanks and comments, so that every byte is accounted for.
  static constexpr int skipped_token = 1 << 20;
  int lex(FSTJSGF_YYSTYPE* value);
  void error(char const* message);
  // A syntax error at the token just read: found is its kind's name ("" at the end of the
  // input), expected the names of the kinds that could have stood there.
  void syntax_error(std::string const& found, std::vector<std::string> const& expected);
  void grammar_name(int label);
  // Warns that imports are not implemented, unless the parse resolves them (FSTJsgfCompileFile).
  void import_statement(int label);
  int keyword_label(char const* keyword);

 private:
  friend bool FSTJsgfCompileFile(FSTGeneric&, std::string&, std::string const&,
                                 FSTJsgfOptions const&);
  struct _Imports;

  // A place in a grammar file: line and column from 1 (0: unknown), and its byte offset.
  struct _Place {
    int line = 0, column = 0;
    size_t offset = 0;
  };

  void _reset();
  bool _run(std::istream& is, std::string const& name);
  // One message. With imports resolved (a grammar compiled as a file) it is written as
  // compilers write them: "FILE:LINE:COLUMN: KIND: text", the line of the file and a caret
  // under the column, then the hint as a note. Otherwise as "NAME, line N: [warning: ]text".
  void _report(char const* kind, std::string const& file, _Place at, std::string const& text,
               std::string const& hint = "");
  bool _compiler_style() const { return _imports != nullptr; }
  // The text of a grammar file read in this compilation, or null.
  std::string const* _source_of(std::string const& file) const;
  void _advance(char const* text, size_t length);
  void _warn_if_weights_ignored(fst::vector<FSTGeneric> const& alternatives);
  void _check_references(int rule, FSTGeneric const& m);
  void _import(int label);
  void _add_import_aliases();
  // The classes of the options that the grammar does not define, as rules.
  void _add_classes();
  bool _keeps_rules() const;
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
  std::vector<std::pair<int, _Place>> _mentions;
  size_t _mentions_used = 0;
  std::map<std::pair<int, int>, _Place> _reference_lines;  // (rule, referenced rule) -> place
  // The text being read, and where the scanner is: after its last match, at the start and end
  // of the last token, at the end of the token before it, at the end of the last line that the
  // current rule runs on from.
  std::string _source;
  std::unique_ptr<std::istringstream> _input;
  _Place _at, _token_at, _token_end, _previous_end, _line_break;
  std::string _token_text, _previous_text;
  // Import resolution, when enabled: the shared search state, the rules imported under short
  // names (short -> full label), the file each imported rule comes from.
  std::shared_ptr<_Imports> _imports;
  std::shared_ptr<std::map<std::string, std::string>> _sources;  // file -> text, for carets
  bool _collect_only = false;  // stop after reading the rules (an imported grammar)
  bool _failed = false;        // an error outside the parser's own (an import not found)
  std::map<int, int> _aliases;
  std::map<int, std::string> _rule_source;
};

#endif
