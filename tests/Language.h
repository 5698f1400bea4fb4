// A machine's weighted language by brute force: every (input string, output string) pair whose
// strings are at most max_length labels long (epsilons are not counted), with its weight.
#ifndef T2SFST_TESTS_LANGUAGE_H
#define T2SFST_TESTS_LANGUAGE_H

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "FST.h"

using LabelString = std::vector<int>;
using StringPair = std::pair<LabelString, LabelString>;
using Language = std::map<StringPair, float>;

// In an idempotent semiring the weight is the best path's, found by relaxation, so cycles
// (epsilon cycles included) are handled as long as none improves the weight. In the other
// semirings it is the plus of all paths, enumerated; their epsilon cycles must be absent.
Language Enumerate(FSTGeneric const& m, size_t max_length);

// The language of a union, concatenation or closure computed from the operands' languages.
Language Plus(FSTSemiringBase const* s, Language const& a, Language const& b);
Language Times(FSTSemiringBase const* s, Language const& a, Language const& b, size_t max_length);
Language Scale(FSTSemiringBase const* s, Language const& a, float w);
// a* (a+ with plus) up to max_length; a must not hold the pair of empty strings.
Language Closure(FSTSemiringBase const* s, Language const& a, bool plus, size_t max_length);
// Pairs (x, z) of a's input and b's output where a writes what b reads: the plus over the middle
// strings y of a(x, y) times b(y, z); pairs longer than max_length are left out.
Language Compose(FSTSemiringBase const* s, Language const& a, Language const& b, size_t max_length);

// Equal keys, weights equal within the tolerance (relative to weights above 1); reports the
// first difference.
::testing::AssertionResult SameLanguage(FSTSemiringBase const* s, Language const& got,
                                        Language const& want, float tolerance = 1e-4f);

std::string Show(Language const& l);

#endif
