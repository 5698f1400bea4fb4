#include "FSTJsgf.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <cmath>
#include <fstream>
#include <functional>
#include <iostream>

#include "FSTBasic.h"
#include "FSTClosure.h"
#include "FSTConcatenate.h"
#include "FSTOptimize.h"
#include "FSTRtn.h"
#include "FSTStringMap.h"
#include "FSTUnion.h"
#include "FSTlib.h"

#undef yyFlexLexer
#define yyFlexLexer FSTJsgf_yyFlexLexer
#include <FlexLexer.h>

#include "FSTJsgfParser.hh"

int FSTJsgf_yyparse(FSTJsgf_yy& jsgf);

namespace {

// Drops the backslash of each escape: \" gives ", \} gives }, \\ gives \.
std::string unescape(std::string const& text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 1 < text.size()) ++i;
    out += text[i];
  }
  return out;
}

}  // namespace

FSTJsgf_yy::FSTJsgf_yy() = default;
FSTJsgf_yy::~FSTJsgf_yy() = default;

void FSTJsgf_yy::_reset() {
  _lexer.reset();
  _grammar_name.clear();
  _public.clear();
  _rules.clear();
  _undefined.clear();
  _result = FSTGeneric();
  _tokens = 0;
  _mentions.clear();
  _mentions_used = 0;
  _reference_lines.clear();
  _input.reset();
  _source.clear();
  _at = _token_at = _token_end = _previous_end = _line_break = _Place();
  _token_text.clear();
  _previous_text.clear();
  _failed = false;
  _aliases.clear();
  _rule_source.clear();
}

bool FSTJsgf_yy::_run(std::istream& is, std::string const& name) {
  _reset();
  _messages.str("");
  _name = name;
  _source.assign(std::istreambuf_iterator<char>(is), std::istreambuf_iterator<char>());
  if (_sources) (*_sources)[name] = _source;
  _input = std::make_unique<std::istringstream>(_source);
  _at = {1, 1, 0};
  _lexer.reset(new FSTJsgf_yyFlexLexer(_input.get(), nullptr));
  return FSTJsgf_yyparse(*this) == 0 && !_failed;
}

bool FSTJsgf_yy::parse(std::istream& is, std::string const& name, FSTGeneric& result,
                       std::string& errors, bool b1, bool b2, bool b3, bool b4, bool b5) {
  _drop_tags = b1;
  _no_output = b2;
  _mark_rules = b3;
  _pauses = b4;
  _allow_undefined = b5;
  bool ok = _run(is, name) && (_undefined.empty() || _allow_undefined);
  if (!ok) {
    errors = _messages.str();
    _reset();
    return false;
  }
  result = _result;
  _reset();
  return true;
}

// ---- scanner and messages -----------------------------------------------------------------------

int FSTJsgf_yy::lex(FSTJSGF_YYSTYPE* value) {
  int token;
  _Place start;
  do {
    token = _lexer->yylex();
    start = _at;
    if (token != 0) _advance(_lexer->YYText(), size_t(_lexer->YYLeng()));
  } while (token == skipped_token);
  _previous_end = _token_end;
  _previous_text = _token_text;
  _token_at = start;
  _token_end = _at;
  _token_text = token == 0 ? "" : std::string(_lexer->YYText(), size_t(_lexer->YYLeng()));
  // The end of the last line that a rule ran on from, for a missing ';'.
  if (_token_text == ";") _line_break = _Place();
  else if (_previous_end.line > 0 && _token_at.line > _previous_end.line) _line_break = _previous_end;
  if (token == 0) return 0;
  ++_tokens;
  std::string text(_lexer->YYText(), size_t(_lexer->YYLeng()));
  switch (token) {
    case FSTJSGF_TOKEN:
      value->label = FSTstring_map[text];
      break;
    case FSTJSGF_QUOTED:
    case FSTJSGF_TAG:  // the quotes or braces are not part of the text
      value->label = FSTstring_map[unescape(text.substr(1, text.size() - 2))];
      break;
    case FSTJSGF_RULE_NAME:
      value->label = _rule_label(text);
      _mentions.push_back({value->label, _token_at});
      break;
    case FSTJSGF_WEIGHT:
      value->weight = std::strtof(text.c_str() + 1, nullptr);
      break;
    default:
      break;
  }
  return token;
}

// "<grammar.rule>" naming this grammar's own rule is that rule.
int FSTJsgf_yy::_rule_label(std::string text) {
  std::string own = "<" + _grammar_name + ".";
  if (!_grammar_name.empty() && text.compare(0, own.size(), own) == 0)
    text = "<" + text.substr(own.size());
  return FSTstring_map[text];
}

void FSTJsgf_yy::_advance(char const* text, size_t length) {
  _at.offset += length;
  for (size_t i = 0; i < length; ++i) {
    if (text[i] == '\n') {
      ++_at.line;
      _at.column = 1;
    } else if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) {
      ++_at.column;  // a character, not the continuation of one
    }
  }
}

void FSTJsgf_yy::_report(char const* kind, std::string const& file, _Place at,
                         std::string const& text, std::string const& hint) {
  if (!_compiler_style()) {
    // The scanner's own line count, as the library's messages have always given it.
    _messages << file << ", line " << (_lexer && file == _name ? _lexer->lineno() : at.line) << ": "
              << (std::strcmp(kind, "error") ? std::string(kind) + ": " : "") << text;
    if (!hint.empty()) _messages << " (" << hint << ")";
    _messages << "\n";
    return;
  }
  _messages << file << ":" << at.line << ":" << at.column << ": " << kind << ": " << text << "\n";
  std::string const* source = _source_of(file);
  if (source && at.line > 0) {
    // The line, and a caret under the column (tabs kept, so that it lines up).
    size_t begin = 0;
    for (int line = 1; line < at.line && begin != std::string::npos; ++line) {
      begin = source->find('\n', begin);
      if (begin != std::string::npos) ++begin;
    }
    if (begin != std::string::npos && begin <= source->size()) {
      std::string const line = source->substr(begin, source->find('\n', begin) - begin);
      std::string caret;
      int column = 1;
      for (size_t i = 0; i < line.size() && column < at.column; ++i) {
        if ((static_cast<unsigned char>(line[i]) & 0xC0) == 0x80) continue;
        caret += line[i] == '\t' ? '\t' : ' ';
        ++column;
      }
      _messages << " " << line << "\n " << caret << "^\n";
    }
  }
  if (!hint.empty())
    _messages << file << ":" << at.line << ":" << at.column << ": note: " << hint << "\n";
}

std::string const* FSTJsgf_yy::_source_of(std::string const& file) const {
  if (file == _name && _lexer) return &_source;
  if (!_sources) return nullptr;
  auto found = _sources->find(file);
  return found == _sources->end() ? nullptr : &found->second;
}

void FSTJsgf_yy::error(char const* message) { _report("error", _name, _token_at, message); }

namespace {

// A kind's name as the parser gives it ("\"word\"", "';'", "end of file") for a message.
std::string kind_name(std::string const& name) {
  if (name.size() > 1 && name.front() == '"') return name.substr(1, name.size() - 2);
  if (name == "end of file") return "the end of the input";
  return name;
}

}  // namespace

void FSTJsgf_yy::syntax_error(std::string const& found, std::vector<std::string> const& expected) {
  if (!_compiler_style()) return error("syntax error");
  std::string wanted;
  bool semicolon = false, rule_name = false;
  for (size_t i = 0; i < expected.size(); ++i) {
    semicolon = semicolon || expected[i] == "';'";
    rule_name = rule_name || kind_name(expected[i]) == "rule name";
    wanted += (i == 0 ? "" : i + 1 == expected.size() ? " or " : ", ") + kind_name(expected[i]);
  }
  // What was found: the token's own text, and its kind where that says more.
  bool const at_end = _token_text.empty();
  std::string what = at_end ? "the end of the input" : "'" + _token_text + "'";
  // A token whose kind has a name of words ("word", "rule name") is shown with it.
  std::string const kind = kind_name(found);
  for (char const* named : {"word", "quoted word", "rule name", "tag", "weight"})
    if (!at_end && kind == named) what = kind + " " + what;
  std::string hint;
  _Place at = _token_at;
  std::string text = "syntax error: found " + what + (wanted.empty() ? "" : ", expected " + wanted);
  if (semicolon && (at_end || (_token_text == "=" && _line_break.line > 0))) {
    // A rule without its ';': at the end of the input, or when the next rule's '=' comes. Say
    // so where the ';' should have been: at the end of the input, or at the last line break.
    at = at_end ? _previous_end : _line_break;
    text = "syntax error: expected ';' at the end of the rule";
    if (!at_end)
      text += ", found " + what + " on line " + std::to_string(_token_at.line);
  } else if (at_end) {
    at = _previous_end;
  } else if (_token_text == "/") {
    hint = "'/' starts a weight such as /2.5/; a word that holds '/' must be quoted";
    // "january:/1": the word the author meant runs from the token before to the next blank.
    size_t const end = std::min(_source.find_first_of(" \t\r\n;|)]", _token_end.offset),
                                _source.size());
    if (!_previous_text.empty() && _previous_end.offset == _token_at.offset)
      hint += ", as in \"" + _previous_text + "/" +
              _source.substr(_token_end.offset, end - _token_end.offset) + "\"";
  } else if (_token_text == "\"") {
    hint = "a quoted word must end with '\"' on the same line";
  } else if (rule_name && kind == "word") {
    hint = "rule names are written in angle brackets: <" + _token_text + ">";
  }
  _report("error", _name, at, text, hint);
}

void FSTJsgf_yy::grammar_name(int label) { _grammar_name = FSTstring_map[label]; }

void FSTJsgf_yy::import_statement(int label) {
  _mentions_used = _mentions.size();
  if (_imports) _import(label);
  else _report("warning", _name, _token_at, "import not implemented");
}

int FSTJsgf_yy::keyword_label(char const* keyword) { return FSTstring_map[keyword]; }

// ---- building blocks ----------------------------------------------------------------------------

FSTGeneric FSTJsgf_yy::empty() {
  FSTGeneric m = FSTBasic(FSTMinPlus);
  m->set_initial(0);
  m->set_final(0, FSTMinPlus->one);
  return m;
}

// One state, not final: nothing is accepted, yet there is a start to carry a weight.
FSTGeneric FSTJsgf_yy::_void() {
  FSTGeneric m = FSTBasic(FSTMinPlus);
  m->set_initial(0);
  return m;
}

FSTGeneric FSTJsgf_yy::simple(int in, int out) {
  FSTGeneric m = FSTBasic(FSTMinPlus);
  m->set_initial(0);
  m->add_arc(0, 1, in, _no_output && in != 0 ? 0 : out, FSTMinPlus->one);
  m->set_final(1, FSTMinPlus->one);
  return m;
}

FSTGeneric FSTJsgf_yy::tag(int label) { return _drop_tags ? empty() : simple(0, label); }

FSTGeneric FSTJsgf_yy::series(fst::vector<FSTGeneric>* items, float weight) {
  FSTGeneric m = items->empty() ? empty() : FSTBasic(FSTConcatenate(*items));
  m->set_potential(m->initial(), weight);
  return m;
}

FSTGeneric FSTJsgf_yy::parallel(fst::vector<FSTGeneric>* fsts) {
  FST_ASSERT(fsts->size() > 0);
  auto weight = [](FSTGeneric const& m) { return m->potential(m->initial()); };
  if (fsts->size() == 1) {
    FSTGeneric only = (*fsts)[0];
    if (weight(only) == 0) return only;
    FSTGeneric copy = FSTBasic(only);  // a single alternative's weight means nothing
    copy->set_potential(copy->initial(), 0);
    return copy;
  }
  float sum = 0;
  for (FSTGeneric const& m : *fsts) {
    if (weight(m) < 0) return FSTBasic(FSTUnion(*fsts));  // one unweighted: none weighted
    sum += weight(m);
  }
  if (sum == 0) return _void();
  // Each alternative costs its share of the total; a share of nothing is impossible.
  fst::vector<float> costs;
  for (FSTGeneric const& m : *fsts)
    costs.push_back(weight(m) > 0 ? std::log(sum) - std::log(weight(m)) : FSTMinPlus->zero);
  return FSTBasic(FSTUnion(*fsts, costs));
}

FSTGeneric FSTJsgf_yy::group(fst::vector<FSTGeneric>* fsts) {
  _warn_if_weights_ignored(*fsts);
  return parallel(fsts);
}

// One alternative without a weight among weighted ones makes the whole group unweighted.
void FSTJsgf_yy::_warn_if_weights_ignored(fst::vector<FSTGeneric> const& fsts) {
  bool weighted = false, unweighted = false;
  for (FSTGeneric const& m : fsts) (m->potential(m->initial()) < 0 ? unweighted : weighted) = true;
  if (weighted && unweighted)
    _report("warning", _name, _token_at,
            "weights ignored: an alternative of this group has no weight",
            "give every alternative a weight, or none");
}

FSTGeneric FSTJsgf_yy::optional(FSTGeneric const& m) { return FSTUnion(m, empty()); }

FSTGeneric FSTJsgf_yy::optimize(FSTGeneric const& m) {
  if (m->states().size() == 0) return m;
  return FSTOptimizeA(m, 1, 0.001f);
}

void FSTJsgf_yy::rule(int name, fst::vector<FSTGeneric>* alternatives, bool is_public) {
  // The first rule name met since the last definition is this one's own; the rest its body's.
  _Place const defined_at =
      _mentions_used < _mentions.size() ? _mentions[_mentions_used].second : _token_at;
  for (size_t i = _mentions_used + 1; i < _mentions.size(); ++i)
    _reference_lines.insert({{name, _mentions[i].first}, _mentions[i].second});
  _mentions_used = _mentions.size();
  _warn_if_weights_ignored(*alternatives);
  auto& definitions = _rules[name];
  if (!definitions.empty() && _compiler_style())
    _report("warning", _name, defined_at, std::string("rule ") + FSTstring_map[name] +
            " is defined again; its definitions are merged as alternatives");
  else if (!definitions.empty())
    _messages << "warning: merging extra definition of rule " << FSTstring_map[name] << ", line "
              << _lexer->lineno() << "\n";
  definitions.insert(definitions.end(), alternatives->begin(), alternatives->end());
  if (is_public) _public.insert(name);
}

bool FSTJsgf_yy::finish_expression(fst::vector<FSTGeneric>* alternatives) {
  if (_tokens == 0) {
    error("syntax error: nothing to compile");
    return false;
  }
  _result = optimize(parallel(alternatives));
  return true;
}

void FSTJsgf_yy::finish_grammar() {
  if (_collect_only) return;
  _add_import_aliases();
  _add_classes();
  float const one = FSTMinPlus->one;
  FSTGeneric top = FSTBasic(FSTMinPlus);
  top->add_states(2);
  top->set_initial(0);
  for (int r : _public) top->add_arc(0, 1, r, _no_output ? 0 : r, one);
  top->set_final(1, one);
  if (_pauses) {
    int open = FSTstring_map["<pause1>"], close = FSTstring_map["<pause2>"];
    top->add_states(2);
    top->set_initial(2);
    top->add_arc(2, 0, open, _no_output ? 0 : open, one);
    top->add_arc(1, 3, close, _no_output ? 0 : close, one);
    top->set_final(1, FSTMinPlus->zero);
    top->set_final(3, one);
  }

  fst::vector<std::string> names;
  fst::vector<FSTGeneric> machines;
  std::map<int, std::set<int>> calls;
  for (auto& [r, definitions] : _rules) {
    FSTGeneric m = optimize(parallel(&definitions));
    for (int p : m->states())
      for (FSTArc* a : m->arcs_out(p))
        if (a->input != 0 && FSTstring_map[a->input][0] == '<' && _rules.count(a->input))
          calls[r].insert(a->input);
    _check_references(r, m);
    names.push_back(FSTstring_map[r]);
    machines.push_back(m);
  }

  // Recursion among rules: each cycle found by the depth-first search, once.
  std::map<int, int> color;
  std::vector<int> path;
  std::function<void(int)> visit = [&](int r) {
    color[r] = 1;
    path.push_back(r);
    for (int q : calls[r]) {
      if (color[q] == 1) {
        std::string cycle;
        for (auto i = std::find(path.begin(), path.end(), q); i != path.end(); ++i)
          cycle += std::string(" ") + FSTstring_map[*i];
        cycle += std::string(" ") + FSTstring_map[q];
        if (_compiler_style()) {
          auto source = _rule_source.find(q);
          _messages << (source != _rule_source.end() ? source->second : _name)
                    << ": note: recursion:" << cycle << "\n";
        } else {
          _messages << "recursion:" << cycle << "\n";
        }
      } else if (color[q] == 0) {
        visit(q);
      }
    }
    path.pop_back();
    color[r] = 2;
  };
  for (auto const& entry : _rules)
    if (color[entry.first] == 0) visit(entry.first);

  if (!_keeps_rules()) _expand_nonrecursive_rules(names, machines, calls);
  _result = FSTRtn(top, names, machines, _mark_rules);
}

// Reports each rule that m (the body of rule) calls and nobody defines, at the line of the call.
void FSTJsgf_yy::_check_references(int rule, FSTGeneric const& m) {
  for (int p : m->states())
    for (FSTArc* a : m->arcs_out(p)) {
      if (a->input == 0 || FSTstring_map[a->input][0] != '<' || _rules.count(a->input)) continue;
      if (!_undefined.insert(std::string(FSTstring_map[rule]) + " " + FSTstring_map[a->input])
               .second)
        continue;
      auto place = _reference_lines.find({rule, a->input});
      auto source = _rule_source.find(rule);
      if (_compiler_style()) {
        _report(_allow_undefined ? "warning" : "error",
                source != _rule_source.end() ? source->second : _name,
                place != _reference_lines.end() ? place->second : _token_at,
                std::string("rule ") + FSTstring_map[rule] + " refers to undefined rule " +
                    FSTstring_map[a->input],
                std::string("define ") + FSTstring_map[a->input] +
                    ", or import the grammar that defines it");
        continue;
      }
      _messages << "warning: rule " << FSTstring_map[rule] << " refers to undefined rule "
                << FSTstring_map[a->input] << ", line "
                << (place != _reference_lines.end() ? place->second.line : _lexer->lineno());
      if (source != _rule_source.end()) _messages << " of " << source->second;
      _messages << "\n";
    }
}

// A rule that cannot reach itself through calls is substituted into its callers, callees first,
// each expansion optimised: the network's stacks (and their depth bound) then serve only the
// recursive rules, however deeply the others nest.
void FSTJsgf_yy::_expand_nonrecursive_rules(fst::vector<std::string> const& names,
                                            fst::vector<FSTGeneric>& machines,
                                            std::map<int, std::set<int>>& calls) {
  std::map<int, size_t> index;
  for (size_t i = 0; i < names.size(); ++i) index[FSTstring_map[names[i]]] = i;
  auto reaches_itself = [&](int r) {
    std::set<int> seen;
    std::vector<int> work(calls[r].begin(), calls[r].end());
    while (!work.empty()) {
      int q = work.back();
      work.pop_back();
      if (q == r) return true;
      if (seen.insert(q).second) work.insert(work.end(), calls[q].begin(), calls[q].end());
    }
    return false;
  };
  std::set<int> recursive;
  for (auto const& entry : index)
    if (reaches_itself(entry.first)) recursive.insert(entry.first);

  std::set<int> expanded;
  std::function<void(int)> expand = [&](int r) {
    if (recursive.count(r) || !expanded.insert(r).second) return;
    fst::vector<std::string> callee_names;
    fst::vector<FSTGeneric> callee_machines;
    for (int q : calls[r]) {
      if (recursive.count(q)) continue;
      expand(q);
      callee_names.push_back(names[index[q]]);
      callee_machines.push_back(machines[index[q]]);
    }
    if (callee_names.empty()) return;
    FSTGeneric& m = machines[index[r]];
    m = optimize(FSTBasic(FSTRtn(m, callee_names, callee_machines, _mark_rules)));
  };
  for (auto const& entry : index) expand(entry.first);
}

// ---- entry points -------------------------------------------------------------------------------

bool FSTJsgfParseFile(FSTGeneric& result, std::string& messages, std::string const& filename,
                      bool b1, bool b2, bool b3, bool b4, bool b5) {
  std::ifstream in(filename, std::ios::binary);
  if (!in) FSTFatal("can't read file `%s'", filename.c_str());
  FSTJsgf_yy parser;
  std::string errors;
  bool ok = parser.parse(in, filename, result, errors, b1, b2, b3, b4, b5);
  messages = ok ? parser.messages() : errors;
  return ok;
}

bool FSTJsgfParseFile(FSTGeneric& result, std::string const& filename, bool b1, bool b2, bool b3,
                      bool b4, bool b5) {
  std::string messages;
  bool ok = FSTJsgfParseFile(result, messages, filename, b1, b2, b3, b4, b5);
  if (!ok) std::cerr << messages;  // nobody else will see why
  return ok;
}

bool FSTJsgfParseString(FSTGeneric& result, std::string& errors, char const* text, bool b1, bool b2,
                        bool b3, bool b4, bool b5) {
  std::istringstream in(text ? text : "");
  FSTJsgf_yy parser;
  return parser.parse(in, "line", result, errors, b1, b2, b3, b4, b5);
}
