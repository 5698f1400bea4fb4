#include "FSTOptimize.h"

#include "FSTBasic.h"
#include "FSTDeterminize.h"
#include "FSTMinimize.h"
#include "FSTPushWeights.h"
#include "FSTRemoveEpsilons.h"

namespace {

float const epsilon_tolerance = 0.001f;

// Each step's result replaces the working handle, releasing the previous machine at once. The
// determinized machine is never stored: minimisation reads it once, and then lets it go with
// its input.
FSTGeneric Pipeline(FSTGeneric m, int limit, float delta, bool acceptor, bool push_first) {
  if (push_first) m = FSTPushWeights(m);
  m = FSTBasic(FSTRemoveEpsilons(m, acceptor, epsilon_tolerance));
  if (!push_first) m = FSTPushWeightsInPlace(std::move(m));
  m = FSTDeterminize(m, limit, acceptor, delta, false);
  return FSTMinimize(std::move(m), delta);
}

}  // namespace

FSTGeneric FSTOptimize(FSTGeneric const& in, int limit, float delta) {
  return Pipeline(in, limit, delta, false, false);
}

FSTGeneric FSTOptimize2(FSTGeneric const& in, int limit, float delta) {
  return Pipeline(in, limit, delta, false, true);
}

FSTGeneric FSTOptimizeA(FSTGeneric const& in, int limit, float delta) {
  return Pipeline(in, limit, delta, true, false);
}

FSTGeneric FSTOptimize2A(FSTGeneric const& in, int limit, float delta) {
  return Pipeline(in, limit, delta, true, true);
}

FSTGeneric FSTOptimize(FSTGeneric&& in, int limit, float delta) {
  return Pipeline(std::move(in), limit, delta, false, false);
}

FSTGeneric FSTOptimize2(FSTGeneric&& in, int limit, float delta) {
  return Pipeline(std::move(in), limit, delta, false, true);
}

FSTGeneric FSTOptimizeA(FSTGeneric&& in, int limit, float delta) {
  return Pipeline(std::move(in), limit, delta, true, false);
}

FSTGeneric FSTOptimize2A(FSTGeneric&& in, int limit, float delta) {
  return Pipeline(std::move(in), limit, delta, true, true);
}
