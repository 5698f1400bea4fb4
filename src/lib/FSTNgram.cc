#include "FSTNgram.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <istream>
#include <ostream>
#include <sstream>

#include "FSTNgram2.h"
#include "FSTNgram3.h"
#include "FSTStringMap.h"
#include "FSTlib.h"

namespace {

float const infinite_cost = 1e30f;

FSTNgramKey key_of(std::vector<int> const& words, size_t begin, size_t end) {
  FSTNgramKey key;
  for (size_t i = begin; i < end; ++i) key.w[i - begin] = words[i];
  return key;
}

size_t length_of(FSTNgramKey const& key) {
  size_t n = 0;
  while (n < 3 && key.w[n] >= 0) ++n;
  return n;
}

}  // namespace

// ---- tables -------------------------------------------------------------------------------------

void FSTNgramTables::add(std::vector<int> const& words, float cost, float backoff) {
  FSTNgramKey key = key_of(words, 0, words.size());
  auto inserted = entries.emplace(key, FSTNgramEntry{cost, backoff});
  if (!inserted.second) {
    inserted.first->second = FSTNgramEntry{cost, backoff};
    return;
  }
  if (keys.size() < words.size()) keys.resize(words.size());
  keys[words.size() - 1].push_back(key);
}

bool FSTNgramTables::linked(std::vector<int> const& words) const {
  if (words.size() < 2) return true;
  if (!find({words.begin(), words.end() - 1})) return false;
  return words.size() > 2 || find({words.begin() + 1, words.end()});
}

FSTNgramEntry const* FSTNgramTables::find(std::vector<int> const& words) const {
  auto found = entries.find(key_of(words, 0, words.size()));
  return found == entries.end() ? nullptr : &found->second;
}

float FSTNgramTables::cost(std::vector<int> const& history, int word) const {
  // A classed word is its class, plus its cost within the class.
  float extra = 0;
  auto classed_word = classed.find(word);
  if (classed_word != classed.end()) {
    word = classed_word->second.first;
    extra = classed_word->second.second;
  }
  std::vector<int> context;
  size_t const keep = std::min(history.size(), size_t(order - 1));
  for (size_t i = history.size() - keep; i < history.size(); ++i) {
    auto c = classed.find(history[i]);
    context.push_back(c == classed.end() ? history[i] : c->second.first);
  }
  float backoff = 0;
  for (size_t drop = 0; drop <= context.size(); ++drop) {
    std::vector<int> words(context.begin() + long(drop), context.end());
    words.push_back(word);
    if (FSTNgramEntry const* e = find(words)) return backoff + e->cost + extra;
    words.pop_back();
    if (!words.empty())
      if (FSTNgramEntry const* h = find(words)) backoff += h->backoff;
  }
  return infinite_cost;
}

// ---- the machine --------------------------------------------------------------------------------

FSTNgramRep::FSTNgramRep(FSTNgramTables tables, char const* machine_name)
    : FSTBasicRep(FSTMinPlus), _tables(std::move(tables)) {
  name = machine_name;
  int const n = _tables.order;
  int const sentence_start = FSTstring_map["<s>"], sentence_end = FSTstring_map["</s>"];
  // States: the empty history (0), then every n-gram below the order, in file order.
  std::unordered_map<FSTNgramKey, int, FSTNgramKey::Hash> state_of;
  add_states(1);
  for (int k = 1; k < n && size_t(k) <= _tables.keys.size(); ++k)
    for (FSTNgramKey const& key : _tables.keys[size_t(k - 1)])
      if (key.w[k - 1] != sentence_end) state_of[key] = add_states(1);
  // The longest history that ends words[begin, end).
  auto history_state = [&](std::vector<int> const& words, size_t begin) {
    for (; begin < words.size(); ++begin) {
      auto found = state_of.find(key_of(words, begin, words.size()));
      if (found != state_of.end()) return found->second;
    }
    return 0;
  };
  for (auto const& level : _tables.keys)
    for (FSTNgramKey const& key : level) {
      size_t const k = length_of(key);
      std::vector<int> words(key.w, key.w + k);
      FSTNgramEntry const& e = _tables.entries.at(key);
      std::vector<int> history(words.begin(), words.end() - 1);
      int from = k == 1 ? 0 : [&] {
        auto found = state_of.find(key_of(history, 0, history.size()));
        return found == state_of.end() ? -1 : found->second;
      }();
      if (from < 0) continue;  // an n-gram whose history the model lacks cannot be reached
      if (words.back() == sentence_end) {
        set_final(from, e.cost);
      } else if (words.back() != sentence_start) {
        // After the word, the history is the longest one that ends the n-gram (at most n-1).
        add_arc(from, history_state(words, k == size_t(n) ? 1 : 0), words.back(), words.back(),
                e.cost);
      }
      // The back-off arc of a history, to the history one word shorter.
      if (k < size_t(n) && state_of.count(key))
        add_arc(state_of[key], history_state(words, 1), 0, 0, e.backoff);
    }
  std::vector<int> start{sentence_start};
  set_initial(state_of.count(key_of(start, 0, 1)) ? state_of[key_of(start, 0, 1)] : 0);
  // A classed word goes wherever its class goes, at its cost within the class.
  if (_tables.classed.empty()) return;
  std::unordered_map<int, std::vector<std::pair<int, float>>> members;
  for (auto const& [word, classed] : _tables.classed) members[classed.first].push_back({word, classed.second});
  for (int p = 0; p < n_states(); ++p) {
    std::vector<FSTArc> class_arcs;
    for (FSTArc* a : arcs_out(p))
      if (members.count(a->input)) class_arcs.push_back(*a);
    for (FSTArc const& a : class_arcs)
      for (auto const& [word, extra] : members[a.input])
        add_arc(p, a.to, word, word, a.weight + extra);
  }
}

std::vector<int> FSTNgramRep::vocabulary() const {
  std::vector<int> words;
  if (!_tables.keys.empty())
    for (FSTNgramKey const& key : _tables.keys[0]) words.push_back(key.w[0]);
  for (auto const& classed : _tables.classed) words.push_back(classed.first);
  return words;
}

int FSTNgramRep::unknown_word() const {
  for (char const* token : {"<unk>", "<UNK>"}) {
    int id = FSTstring_map[token];
    if (_tables.find({id})) return id;
  }
  return 0;
}

FSTNgramRep::SentenceScore FSTNgramRep::score(std::string const& sentence) const {
  // The scorer's view of this model: words are label ids.
  struct Words {
    FSTNgramRep const& m;
    int const none = -1, start = FSTstring_map["<s>"], end = FSTstring_map["</s>"];
    int unknown = m.unknown_word() ? m.unknown_word() : none;
    int lookup(std::string_view token) const {
      int const id = FSTstring_map[std::string(token)];
      return m._tables.find({id}) || m._tables.classed.count(id) ? id : none;
    }
    float cost(std::vector<int> const& history, int word) const { return m.cost(history, word); }
  } const words{*this};
  return FSTNgramScoreSentence(words, sentence);
}

void FSTNgramRep::dump_ngram(std::ostream& os) const {
  char buffer[32];
  os << "#" << name << " Version=2\norder " << _tables.order << "\n";
  for (size_t k = 1; k <= size_t(_tables.order); ++k) {
    std::vector<FSTNgramKey> const none;
    auto const& level = k <= _tables.keys.size() ? _tables.keys[k - 1] : none;
    os << "ngrams " << k << " " << level.size() << "\n";
    for (FSTNgramKey const& key : level) {
      FSTNgramEntry const& e = _tables.entries.at(key);
      std::snprintf(buffer, sizeof buffer, "%.9g", double(e.cost));
      os << buffer;
      for (size_t i = 0; i < k; ++i) os << " " << FSTEscapeLabel(FSTstring_map[key.w[i]]);
      if (e.backoff != 0) {
        std::snprintf(buffer, sizeof buffer, "%.9g", double(e.backoff));
        os << " " << buffer;
      }
      os << "\n";
    }
  }
  for (auto const& [word, classed] : _tables.classed)
    os << "class " << FSTEscapeLabel(FSTstring_map[word]) << " "
       << FSTEscapeLabel(FSTstring_map[classed.first]) << " " << classed.second << "\n";
  os << "end\n";
}

FSTNgramRep const* FSTNgramCast(FSTGeneric const& g) {
  return dynamic_cast<FSTNgramRep const*>(g.get());
}

FSTGeneric FSTNgramFromTables(FSTNgramTables tables) {
  if (tables.order == 2) return new FSTNgram2Rep(std::move(tables));
  return new FSTNgram3Rep(std::move(tables));
}

// ---- readers ------------------------------------------------------------------------------------

namespace {

std::vector<std::string> fields_of(std::string const& line) {
  std::istringstream in(line);
  std::vector<std::string> fields;
  for (std::string field; in >> field;) fields.push_back(field);
  return fields;
}

bool whole(std::string const& text, long& value) {
  char* end;
  value = std::strtol(text.c_str(), &end, 10);
  return !text.empty() && *end == 0;
}

bool number(std::string const& text, float& value) {
  char* end;
  value = std::strtof(text.c_str(), &end);
  return !text.empty() && *end == 0 && std::isfinite(value);
}

}  // namespace

bool FSTNgramReadArpa(std::istream& is, char const* name, FSTGeneric& result, std::string& error) {
  float const ln10 = float(std::log(10.0));
  std::string line;
  long line_number = 0;
  auto fail = [&](std::string const& what) {
    error = std::string(name ? name : "ARPA file") + ", line " + std::to_string(line_number) +
            ": " + what;
    return false;
  };
  auto next_line = [&]() {
    bool ok = bool(std::getline(is, line));
    ++line_number;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return ok;
  };
  // Up to \data\, then its counts.
  while (true) {
    if (!next_line()) return fail("no \\data\\ section");
    if (line == "\\data\\") break;
  }
  std::vector<long> counts;
  while (next_line() && line.rfind("ngram ", 0) == 0) {
    int k;
    long count;
    if (std::sscanf(line.c_str(), "ngram %d=%ld", &k, &count) != 2 || k != int(counts.size()) + 1 ||
        count < 0)
      return fail("expected \"ngram " + std::to_string(counts.size() + 1) + "=COUNT\"");
    counts.push_back(count);
  }
  if (counts.size() < 2) return fail("unigram-only models are not supported (orders 2 and 3 are)");
  if (counts.size() > 3)
    return fail(std::to_string(counts.size()) + "-gram models are not supported (orders 2 and 3 are)");
  FSTNgramTables tables;
  tables.order = int(counts.size());
  for (size_t k = 1; k <= counts.size(); ++k) {
    while (fields_of(line).empty())
      if (!next_line()) return fail("the file ends before the \\" + std::to_string(k) + "-grams: section");
    if (line != "\\" + std::to_string(k) + "-grams:")
      return fail("expected \\" + std::to_string(k) + "-grams:");
    for (long i = 0; i < counts[k - 1]; ++i) {
      if (!next_line()) return fail("the file ends inside the \\" + std::to_string(k) + "-grams: section");
      std::vector<std::string> f = fields_of(line);
      if (f.empty()) {
        --i;
        continue;
      }
      float logp, backoff = 0;
      if ((f.size() != k + 1 && f.size() != k + 2) || !number(f[0], logp) ||
          (f.size() == k + 2 && !number(f[k + 1], backoff)))
        return fail("expected " + std::to_string(k) + " words between a log10 probability and "
                    "an optional back-off");
      if (f.size() == k + 2 && k == counts.size())
        return fail("an n-gram of the highest order has no back-off weight");
      std::vector<int> words;
      for (size_t j = 1; j <= k; ++j) {
        // A label is a C string everywhere else: a NUL byte would silently shorten the word.
        if (f[j].find('\0') != std::string::npos) return fail("a word holds a NUL byte");
        words.push_back(FSTstring_map[f[j]]);
      }
      if (!tables.linked(words))
        return fail("an n-gram whose history or suffix is not in the model: " + line);
      // log10 -99 is the ARPA convention for "never": keep it as a large finite cost.
      tables.add(words, -logp * ln10 + 0.0f, -backoff * ln10 + 0.0f);  // no -0
    }
    if (!next_line()) return fail("the file ends after the \\" + std::to_string(k) + "-grams: section");
    while (fields_of(line).empty())
      if (!next_line()) return fail("the file ends without \\end\\");
    if (line.rfind("\\", 0) != 0 || line == "\\data\\")
      return fail("more n-grams than \\data\\ announced for order " + std::to_string(k));
  }
  if (line != "\\end\\") return fail("expected \\end\\");
  result = FSTNgramFromTables(std::move(tables));
  return true;
}

FSTNgramTables FSTNgramReadText(std::istream& is, char const* header, int order) {
  if (!header || !std::strstr(header, "Version=2"))
    FSTFatal("FSTNgram%d: unsupported version in header \"%s\" (Version=2 expected)", order,
             header ? header : "");
  FSTNgramTables tables;
  std::string line;
  long line_number = 1;
  auto fail = [&](char const* what) {
    FSTFatal("FSTNgram%d file, line %ld: %s", order, line_number, what);
  };
  auto next = [&]() {
    ++line_number;
    if (!std::getline(is, line)) fail("the file ends before \"end\"");
    return fields_of(line);
  };
  std::vector<std::string> f = next();
  long value = 0, count = -1;
  if (f.size() != 2 || f[0] != "order" || !whole(f[1], value) || value != order)
    fail("expected \"order\" and the model's order");
  tables.order = order;
  for (int k = 1; k <= order; ++k) {
    f = next();
    if (f.size() != 3 || f[0] != "ngrams" || !whole(f[1], value) || value != k ||
        !whole(f[2], count) || count < 0)
      fail("expected \"ngrams K COUNT\"");
    for (long i = 0; i < count; ++i) {
      f = next();
      float cost, backoff = 0;
      if ((f.size() != size_t(k) + 1 && f.size() != size_t(k) + 2) || !number(f[0], cost) ||
          (f.size() == size_t(k) + 2 && !number(f.back(), backoff)))
        fail("expected a cost, the words and an optional back-off cost");
      std::vector<int> words;
      for (int j = 1; j <= k; ++j) words.push_back(FSTstring_map[FSTUnescapeLabel(f[size_t(j)])]);
      if (!tables.linked(words))
        fail("an n-gram whose history or suffix is not in the model");
      tables.add(words, cost, backoff);
    }
  }
  for (f = next(); f.size() == 4 && f[0] == "class"; f = next()) {
    float cost;
    if (!number(f[3], cost)) fail("expected \"class WORD CLASS COST\"");
    tables.classed[FSTstring_map[FSTUnescapeLabel(f[1])]] = {FSTstring_map[FSTUnescapeLabel(f[2])], cost};
  }
  if (f.size() != 1 || f[0] != "end") fail("expected \"end\"");
  return tables;
}
