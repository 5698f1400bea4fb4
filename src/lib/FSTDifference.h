// Complement and difference of acceptors. FSTComplement(b, alphabet) is a deterministic,
// complete, unweighted acceptor of the strings over alphabet that b does not accept (b is read
// as an unweighted acceptor: epsilons removed and determinized first). FSTDifference(a, b) is a
// composed with that complement: a's paths whose input string b does not accept, with a's
// weights and outputs. Cost: the determinized b, plus one arc per state and label of the alphabet
// (states x labels arcs: meant for alphabets of letters or of a vocabulary of moderate size).
#ifndef T2SFST_FSTDIFFERENCE_H
#define T2SFST_FSTDIFFERENCE_H

#include "FSTGeneric.h"

FSTGeneric FSTComplement(FSTGeneric const& b, fst::set<int> const& alphabet);
// Lazy in a; b is complemented over the labels of a's inputs and b's.
FSTGeneric FSTDifference(FSTGeneric const& a, FSTGeneric const& b);

#endif
