#include "FSTJsgfImport.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>

#include "FSTBasic.h"
#include "FSTJsgf.h"
#include "FSTOperand.h"
#include "FSTStringMap.h"
#include "FSTlib.h"

// What the parsers of one compilation share: the options, the packages read so far (each is
// read once, which also ends import cycles) and the short names of each package's public rules.
struct FSTJsgf_yy::_Imports {
  FSTJsgfOptions options;
  std::set<std::string> loaded;
  std::map<std::string, std::set<std::string>> public_rules;
};

namespace {

// The whole file, or false with the reason in messages. Only regular files are grammars.
bool read_grammar(std::string const& path, std::string& text, std::string& messages) {
  struct stat info;
  if (stat(path.c_str(), &info) != 0) {
    messages += "cannot read grammar " + path + ": " + std::strerror(errno) + "\n";
    return false;
  }
  if (!S_ISREG(info.st_mode)) {
    messages += "cannot read grammar " + path + ": not a regular file\n";
    return false;
  }
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    messages += "cannot read grammar " + path + ": " + std::strerror(errno) + "\n";
    return false;
  }
  text.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  return true;
}

std::string folder_of(std::string const& path) {
  size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : path.substr(0, slash == 0 ? 1 : slash);
}

// A copy of m with rule-reference labels renamed (both sides), potentials kept: an alternative's
// weight rides on its initial state's potential.
FSTGeneric relabel(FSTGeneric const& m, std::map<int, int> const& rename) {
  auto name = [&rename](int label) {
    auto found = rename.find(label);
    return found == rename.end() ? label : found->second;
  };
  FSTGeneric copy = FSTBasic(m->semiring());
  int const n = m->states().size();
  copy->add_states(n);
  if (m->initial() >= 0) copy->set_initial(m->initial());
  for (int p = 0; p < n; ++p) {
    if (m->is_final(p)) copy->set_final(p, m->final_weight(p));
    copy->set_potential(p, m->potential(p));
    for (FSTArc* a : m->arcs_out(p)) copy->add_arc(p, a->to, name(a->input), name(a->output), a->weight);
  }
  return copy;
}

}  // namespace

void FSTJsgf_yy::_import(int label) {
  _Place const at = _mentions.empty() ? _token_at : _mentions.back().second;  // the name's place
  std::string const name = FSTstring_map[label];
  std::string const inner = name.substr(1, name.size() - 2);
  size_t const dot = inner.rfind('.');
  if (dot == std::string::npos || dot == 0 || dot + 1 == inner.size()) {
    _report("error", _name, at, "import " + name + " names no grammar",
            "write <grammar.rule> or <grammar.*>");
    _failed = true;
    return;
  }
  std::string const package = inner.substr(0, dot), rule = inner.substr(dot + 1);
  if (_imports->loaded.insert(package).second) {
    std::vector<std::string> folders{folder_of(_name)};
    folders.insert(folders.end(), _imports->options.search_path.begin(),
                   _imports->options.search_path.end());
    std::string path, text, unread;
    for (std::string const& folder : folders) {
      for (char const* ending : {".gram", ".jsgf"}) {
        std::string candidate = folder + "/" + package + ending;
        struct stat info;
        if (stat(candidate.c_str(), &info) == 0 && S_ISREG(info.st_mode)) {
          path = candidate;
          break;
        }
      }
      if (!path.empty()) break;
    }
    if (path.empty() || !read_grammar(path, text, unread)) {
      std::string text = "import " + name + ": cannot find " + package + ".gram or " + package +
                         ".jsgf in";
      for (std::string const& folder : folders) text += " " + folder;
      _report("error", _name, at, text, unread.empty() ? "" : unread.substr(0, unread.size() - 1));
      _failed = true;
      return;
    }
    FSTJsgf_yy nested;
    nested._drop_tags = _drop_tags;
    nested._no_output = _no_output;
    nested._mark_rules = _mark_rules;
    nested._pauses = _pauses;
    nested._allow_undefined = _allow_undefined;
    nested._imports = _imports;
    nested._sources = _sources;
    nested._collect_only = true;
    std::istringstream in(text);
    bool ok = nested._run(in, path);
    _messages << nested._messages.str();
    if (!ok) {
      _failed = true;
      return;
    }
    nested._add_import_aliases();
    // The package's own rules take its name; rules it imported keep their full names.
    std::map<int, int> rename;
    for (auto const& entry : nested._rules) {
      std::string text_of_rule = FSTstring_map[entry.first];
      if (text_of_rule.find('.') == std::string::npos)
        rename[entry.first] = FSTstring_map["<" + package + "." + text_of_rule.substr(1)];
    }
    auto renamed = [&rename](int r) { return rename.count(r) ? rename[r] : r; };
    for (auto const& [r, definitions] : nested._rules) {
      int const full = renamed(r);
      for (FSTGeneric const& m : definitions) _rules[full].push_back(relabel(m, rename));
      auto source = nested._rule_source.find(r);
      _rule_source[full] = source == nested._rule_source.end() ? path : source->second;
    }
    for (auto const& [key, line] : nested._reference_lines)
      _reference_lines.insert({{renamed(key.first), renamed(key.second)}, line});
    std::set<std::string>& exported = _imports->public_rules[package];
    for (int r : nested._public) {
      std::string text_of_rule = FSTstring_map[r];
      exported.insert(text_of_rule.substr(1, text_of_rule.size() - 2));
    }
  }
  std::set<std::string> const& exported = _imports->public_rules[package];
  auto alias = [&](std::string const& short_name) {
    _aliases[FSTstring_map["<" + short_name + ">"]] =
        FSTstring_map["<" + package + "." + short_name + ">"];
  };
  if (rule == "*") {
    for (std::string const& r : exported) alias(r);
  } else if (exported.count(rule)) {
    alias(rule);
  } else {
    _report("error", _name, at,
            "import " + name + ": grammar " + package + " has no public rule <" + rule + ">");
    _failed = true;
  }
}

// Short names of imported rules call the full ones, unless the grammar defines them itself.
bool FSTJsgf_yy::_keeps_rules() const { return _imports && _imports->options.keep_rules; }

void FSTJsgf_yy::_add_classes() {
  if (!_imports) return;
  for (auto const& [name, machine] : _imports->options.classes) {
    int const label = FSTstring_map["<" + name + ">"];
    if (_rules.count(label)) {
      _report("warning", _name, _token_at,
              "the grammar defines <" + name + ">: the class of that name is not used");
      continue;
    }
    _rules[label].push_back(machine);
  }
}

FSTGeneric FSTJsgfPhraseClass(std::string const& file) {
  std::ifstream in(file);
  if (!in) FSTFatal("can't read file %s", file.c_str());
  FSTGeneric m = FSTBasic(FSTMinPlus);
  m->add_states(2);
  m->set_initial(0);
  m->set_final(1, FSTMinPlus->one);
  std::string line;
  while (std::getline(in, line)) {
    size_t const begin = line.find_first_not_of(" \t\r");
    if (begin == std::string::npos || line.compare(begin, 2, "//") == 0) continue;
    size_t const end = line.find_last_not_of(" \t\r");
    int const token = FSTstring_map[line.substr(begin, end - begin + 1)];
    m->add_arc(0, 1, token, token, FSTMinPlus->one);
  }
  return m;
}

void FSTJsgf_yy::_add_import_aliases() {
  for (auto const& [short_name, full] : _aliases) {
    if (_rules.count(short_name)) continue;
    fst::vector<FSTGeneric> call{simple(full, full)};
    _rules[short_name].push_back(series(&call, -1));
  }
  if (_imports && !_collect_only && _public.empty()) {
    _report("error", _name, _at, "the grammar has no public rule, so it accepts nothing",
            "mark the rules a sentence may be as public: public <name> = ...;");
    _failed = true;
  }
}

bool FSTJsgfCompileFile(FSTGeneric& result, std::string& messages, std::string const& filename,
                        FSTJsgfOptions const& options) {
  messages.clear();
  std::string text;
  if (!read_grammar(filename, text, messages)) return false;
  FSTJsgf_yy parser;
  parser._imports = std::make_shared<FSTJsgf_yy::_Imports>();
  parser._sources = std::make_shared<std::map<std::string, std::string>>();
  parser._imports->options = options;
  std::istringstream in(text);
  std::string errors;
  bool ok = parser.parse(in, filename, result, errors, options.drop_tags, options.no_output,
                         options.mark_rules, options.pauses, options.allow_undefined);
  messages = ok ? parser.messages() : errors;
  return ok;
}

void FSTJsgfTokenSides(std::string const& token, std::string& spoken, std::string& written) {
  // The last ':' that no backslash escapes splits; "\\:" is a colon of either side ("05\\:00").
  size_t colon = std::string::npos;
  for (size_t at = token.size(); at > 0 && colon == std::string::npos; --at)
    if (token[at - 1] == ':' && !(at >= 2 && token[at - 2] == '\\')) colon = at - 1;
  auto unescape = [](std::string side) {
    for (size_t at; (at = side.find("\\:")) != std::string::npos;) side.erase(at, 1);
    return side;
  };
  spoken = unescape(token.substr(0, colon));
  written = colon == std::string::npos ? spoken : unescape(token.substr(colon + 1));
}

FSTGeneric FSTJsgfSplitTokens(FSTGeneric const& m) {
  FSTOperandForce(*m);  // a lazy machine knows its states once expanded
  FSTGeneric split = FSTBasic(m->semiring());
  int const n = m->states().size();
  if (n > 0) split->add_states(n);
  if (m->initial() >= 0) split->set_initial(m->initial());
  // Each label's sides, found once: a grammar has far fewer tokens than arcs.
  std::map<int, std::pair<int, int>> sides;
  std::string spoken, written;
  for (int p = 0; p < n; ++p) {
    if (m->is_final(p)) split->set_final(p, m->final_weight(p));
    for (FSTArc* a : m->arcs_out(p, FSTArcOrderAny)) {
      int input = a->input, output = a->output;
      if (input != 0 && std::strchr(FSTstring_map[input], ':')) {
        auto known = sides.find(input);
        if (known == sides.end()) {
          FSTJsgfTokenSides(FSTstring_map[input], spoken, written);
          int const written_label = written.empty() ? 0 : FSTstring_map[written];
          known = sides.emplace(input, std::make_pair(FSTstring_map[spoken], written_label)).first;
        }
        if (output == input) output = known->second.second;
        input = known->second.first;
      }
      split->add_arc(p, a->to, input, output, a->weight);
    }
  }
  return split;
}
