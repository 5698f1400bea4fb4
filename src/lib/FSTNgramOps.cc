#include "FSTNgramOps.h"

#include <unordered_set>

#include "FSTLazy.h"
#include "FSTStringMap.h"
#include "FSTlib.h"

namespace {

FSTNgramRep const& model_of(FSTGeneric const& g, char const* operation) {
  FSTNgramRep const* model = FSTNgramCast(g);
  if (!model) FSTFatal("%s: %s is not an n-gram model", operation, g->name.c_str());
  return *model;
}

// The epsilon-free view: the back-off chain of every state walked once per request.
class FSTNgramDeterminizeRep : public FSTGenericInt {
 public:
  explicit FSTNgramDeterminizeRep(FSTGeneric const& model) : _model(model) {
    model_of(model, "FSTNgramDeterminize");
    name = "FSTNgramDeterminize";
    _semiring = model->semiring();
    _initial = model->initial();
    _n_states = model->states().size();
    for (int label : model->input_alphabet())
      if (label != 0) _labels.insert(label);
  }
  fst::set<int> const& input_alphabet() const override { return _labels; }
  fst::set<int> const& output_alphabet() const override { return _labels; }
  using FSTGenericInt::arcs_out;
  FSTArcIter arcs_out(int p, FSTArcOrder order = FSTArcOrderAny) const override {
    FST_ASSERT_STATE(p);
    FSTSemiringBase const& s = *_semiring;
    FSTArcList list;
    std::unordered_set<int> taken;
    float backoff = s.one;
    // The chain is at most the model's order long; a longer one would be a loop.
    for (int state = p, steps = 0; state >= 0 && steps <= _n_states; ++steps) {
      int next = -1;
      float next_cost = s.one;
      for (FSTArc* a : _model->arcs_out(state)) {
        if (a->input == 0) {
          next = a->to;
          next_cost = a->weight;
        } else if (taken.insert(a->input).second) {
          list.add(a->input, a->output, s.times(backoff, a->weight), a->to, p);
        }
      }
      backoff = s.times(backoff, next_cost);
      state = next;
    }
    return list.iter(order);
  }
  FSTArcIter arcs_out_with_input(int p, int label, FSTArcMode m) const override {
    return FSTSelectArcs(arcs_out(p), label, m, true);
  }
  FSTArcIter arcs_out_with_output(int p, int label, FSTArcMode m) const override {
    return FSTSelectArcs(arcs_out(p), label, m, false);
  }
  bool is_final(int p) const override { return final_weight(p) != _semiring->zero; }
  float final_weight(int p) const override {
    FST_ASSERT_STATE(p);
    FSTSemiringBase const& s = *_semiring;
    float backoff = s.one;
    for (int state = p, steps = 0; state >= 0 && steps <= _n_states; ++steps) {
      if (_model->is_final(state)) return s.times(backoff, _model->final_weight(state));
      int next = -1;
      for (FSTArc* a : _model->arcs_out_with_input(state, 0, FSTArcModeEqual)) {
        next = a->to;
        backoff = s.times(backoff, a->weight);
      }
      state = next;
    }
    return s.zero;
  }
  float potential(int p) const override { return _model->potential(p); }
  void force() const override {}
  void reset() const override {}

 private:
  FSTGeneric _model;
  fst::set<int> _labels;
};

}  // namespace

FSTGeneric FSTNgramDeterminize(FSTGeneric const& model) {
  return new FSTNgramDeterminizeRep(model);
}

FSTGeneric FSTNgramInvert(FSTGeneric const& model) {
  FSTNgramTables tables = model_of(model, "FSTNgramInvert").tables();
  for (auto& [key, entry] : tables.entries) {
    entry.cost = -entry.cost;
    entry.backoff = -entry.backoff;
  }
  for (auto& [word, classed] : tables.classed) classed.second = -classed.second;
  return FSTNgramFromTables(std::move(tables));
}

FSTGeneric FSTNgramSubtract(FSTGeneric const& first, FSTGeneric const& second) {
  FSTNgramTables tables = model_of(first, "FSTNgramSubtract").tables();
  FSTNgramRep const& other = model_of(second, "FSTNgramSubtract");
  for (auto& [key, entry] : tables.entries) {
    std::vector<int> words;
    for (int w : key.w)
      if (w >= 0) words.push_back(w);
    int const word = words.back();
    words.pop_back();
    entry.cost -= other.cost(words, word);
    words.push_back(word);
    if (FSTNgramEntry const* e = other.tables().find(words)) entry.backoff -= e->backoff;
  }
  return FSTNgramFromTables(std::move(tables));
}

FSTGeneric FSTNgramAddClassedWord(FSTGeneric const& model, std::string const& class_token,
                                  std::string const& word, float in_class_cost) {
  FSTNgramTables tables = model_of(model, "FSTNgramAddClassedWord").tables();
  int const class_id = FSTstring_map[class_token];
  if (!tables.find({class_id}))
    FSTFatal("FSTNgramAddClassedWord: the model has no class token %s", class_token.c_str());
  tables.classed[FSTstring_map[word]] = {class_id, in_class_cost};
  return FSTNgramFromTables(std::move(tables));
}
