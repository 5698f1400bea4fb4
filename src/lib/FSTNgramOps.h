// Operations on back-off n-gram models (FSTNgram.h).
//
// FSTNgramDeterminize: a lazy, epsilon-free machine with exact back-off semantics: a state's arcs
//   are its own n-grams, then those of each shorter history for words not taken yet, charged with
//   the back-off costs on the way; final weights likewise. Same states as the model; each state
//   costs one pass over its back-off chain's arcs when asked for.
// FSTNgramInvert: the model with every cost and back-off cost negated (for subtracting a model
//   in a composition); its back-off choices stay the model's.
// FSTNgramSubtract: a model with the first's n-grams, each costing its cost in the first minus
//   the second's cost for it (back-off applied), and back-off costs the first's minus the
//   second's for the same history (0 where the second has none). Linear in the first's n-grams.
// FSTNgramAddClassedWord: the model with word added to class (a token of the model) at
//   in_class_cost: the word goes wherever the class goes, costing the class's cost plus that.
#ifndef T2SFST_FSTNGRAMOPS_H
#define T2SFST_FSTNGRAMOPS_H

#include <string>

#include "FSTNgram.h"

FSTGeneric FSTNgramDeterminize(FSTGeneric const& model);
FSTGeneric FSTNgramInvert(FSTGeneric const& model);
FSTGeneric FSTNgramSubtract(FSTGeneric const& first, FSTGeneric const& second);
FSTGeneric FSTNgramAddClassedWord(FSTGeneric const& model, std::string const& class_token,
                                  std::string const& word, float in_class_cost);

#endif
