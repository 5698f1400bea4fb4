#include "FSTJsgf.h"

#include <algorithm>
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
  _failed = false;
  _aliases.clear();
  _rule_source.clear();
}

bool FSTJsgf_yy::_run(std::istream& is, std::string const& name) {
  _reset();
  _messages.str("");
  _name = name;
  _lexer.reset(new FSTJsgf_yyFlexLexer(&is, nullptr));
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
  int token = _lexer->yylex();
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
      _mentions.push_back({value->label, _lexer->lineno()});
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

std::ostream& FSTJsgf_yy::_at_line() {
  return _messages << _name << ", line " << (_lexer ? _lexer->lineno() : 0) << ": ";
}

void FSTJsgf_yy::error(char const* message) { _at_line() << message << "\n"; }

void FSTJsgf_yy::grammar_name(int label) { _grammar_name = FSTstring_map[label]; }

void FSTJsgf_yy::import_statement(int label) {
  _mentions_used = _mentions.size();
  if (_imports) _import(label);
  else _at_line() << "warning: import not implemented\n";
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
    _at_line() << "warning: weights ignored: an alternative of this group has no weight\n";
}

FSTGeneric FSTJsgf_yy::optional(FSTGeneric const& m) { return FSTUnion(m, empty()); }

FSTGeneric FSTJsgf_yy::optimize(FSTGeneric const& m) {
  if (m->states().size() == 0) return m;
  return FSTOptimizeA(m, 1, 0.001f);
}

void FSTJsgf_yy::rule(int name, fst::vector<FSTGeneric>* alternatives, bool is_public) {
  // The first rule name met since the last definition is this one's own; the rest its body's.
  for (size_t i = _mentions_used + 1; i < _mentions.size(); ++i)
    _reference_lines.insert({{name, _mentions[i].first}, _mentions[i].second});
  _mentions_used = _mentions.size();
  _warn_if_weights_ignored(*alternatives);
  auto& definitions = _rules[name];
  if (!definitions.empty())
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
        _messages << "recursion:";
        for (auto i = std::find(path.begin(), path.end(), q); i != path.end(); ++i)
          _messages << " " << FSTstring_map[*i];
        _messages << " " << FSTstring_map[q] << "\n";
      } else if (color[q] == 0) {
        visit(q);
      }
    }
    path.pop_back();
    color[r] = 2;
  };
  for (auto const& entry : _rules)
    if (color[entry.first] == 0) visit(entry.first);

  _expand_nonrecursive_rules(names, machines, calls);
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
      auto line = _reference_lines.find({rule, a->input});
      _messages << "warning: rule " << FSTstring_map[rule] << " refers to undefined rule "
                << FSTstring_map[a->input] << ", line "
                << (line != _reference_lines.end() ? line->second : _lexer->lineno());
      auto source = _rule_source.find(rule);
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
