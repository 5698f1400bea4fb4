// The lazy union of any number of machines, with an optional weight charged on entering each
// operand and optional tags bracketing each operand's paths.
#ifndef T2SFST_FSTUNION_H
#define T2SFST_FSTUNION_H

#include "FSTLazy.h"

class FSTUnionRep : public FSTLazyRep<FSTOperandState> {
 public:
  // weights may be shorter than fsts (the rest weigh one); input_tags and output_tags are label
  // ids (0 = no tag), one per operand or none at all. A tag named N brackets the operand's
  // paths with "<N>" and "</N>".
  FSTUnionRep(fst::vector<FSTGeneric> const& fsts, fst::vector<float> const& weights,
              fst::vector<int> const& input_tags, fst::vector<int> const& output_tags);
  ~FSTUnionRep() override;

  // Both sides of every operand's labels and the tags; the output alphabet is just {0}.
  fst::set<int> const& input_alphabet() const override { return _input_alphabet; }
  fst::set<int> const& output_alphabet() const override { return _output_alphabet; }
  using FSTGenericInt::arcs_out;
  FSTArcIter arcs_out(int p, FSTArcOrder order = FSTArcOrderAny) const override;
  FSTArcIter arcs_out_with_input(int p, int label, FSTArcMode m = FSTArcModeEqual) const override;
  FSTArcIter arcs_out_with_output(int p, int label, FSTArcMode m = FSTArcModeEqual) const override;
  bool is_final(int p) const override;
  float final_weight(int p) const override;
  float potential(int p) const override;
  void force() const override;
  void reset() const override;
  FSTGeneric reload(bool& changed) override;

 private:
  struct _Tags {
    int input_open, output_open, input_close, output_close;
  };
  static constexpr int _initial_key = -1, _super_final_key = -2;

  void _setup_alphabets();
  // Forgets every state but the initial (and the super-final) one.
  void _init() const;
  float _weight(int operand) const;
  bool _tagged() const { return !_tags.empty(); }
  // The arcs leaving p; `operand_arcs` gives the operand's arcs at a state, `keep` decides on
  // the union's own arcs (entry and closing-tag arcs) by their labels.
  FSTArcIter _arcs(int p, FSTArcOrder order,
                   std::function<FSTArcIter(FSTGenericInt const&, int)> const& operand_arcs,
                   std::function<bool(int input, int output)> const& keep) const;

  fst::vector<FSTGeneric> _fsts;
  int _n_fsts;
  fst::vector<float> _weights;
  fst::vector<_Tags> _tags;
  fst::set<int> _tag_labels;
  mutable int _super_final;
  fst::set<int> _input_alphabet;
  fst::set<int> _output_alphabet;
};

FSTGeneric FSTUnion(FSTGeneric const& a, FSTGeneric const& b);
FSTGeneric FSTUnion(FSTGeneric const& a, FSTGeneric const& b, FSTGeneric const& c);
FSTGeneric FSTUnion(fst::vector<FSTGeneric> const& fsts);
FSTGeneric FSTUnion(fst::vector<FSTGeneric> const& fsts, fst::vector<float> const& weights);
FSTGeneric FSTUnion(fst::vector<FSTGeneric> const& fsts, fst::vector<int> const& input_tags,
                    fst::vector<int> const& output_tags);
FSTGeneric FSTUnion(fst::vector<FSTGeneric> const& fsts, fst::vector<float> const& weights,
                    fst::vector<int> const& input_tags, fst::vector<int> const& output_tags);

#endif
