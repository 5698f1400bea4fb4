#include <fstream>
#include <iterator>
#include <memory>
#include <string>

#include "FSTAllocator.h"
#include "FSTBasic.h"
#include "FSTDeterminize.h"
#include "FSTMinimize.h"
#include "FSTPushWeights.h"
#include "FSTJsgf.h"
#include "FSTJsgfImport.h"
#include "FSTlib.h"
#include "FSTLoad.h"
#include "FSTOptimize.h"
#include "T2sBuilder.h"
#include "T2sModel.h"

// The packed model keeps only a final flag. A final weight that is not one (left where
// continuing is cheaper than stopping: pushing cannot move it) goes on an epsilon arc to one new
// final state instead, so that stopping there costs what it should. Linear in the machine; the
// machine itself when no final weight needs moving.
FSTGeneric T2sFinalWeightsOnArcs(FSTGeneric m) {
  FSTSemiringBase const& s = *m->semiring();
  int const n = m->states().size();
  int end = -1;
  for (int p = 0; p < n; ++p) {
    if (!m->is_final(p) || m->final_weight(p) == s.one) continue;
    if (end < 0) {
      if (!m->is_mutable() || m->reference_count() != 1) m = FSTMutableCopy(m);
      end = m->add_states(1);
      m->set_final(end, s.one);
    }
    m->add_arc(p, end, 0, 0, m->final_weight(p));
    m->set_final(p, s.zero);
  }
  return m;
}

namespace {

bool HasEpsilonArcs(FSTGenericInt const& m) {
  for (int p : m.states())
    for (FSTArc* a : m.arcs_out(p, FSTArcOrderAny))
      if (a->input == 0 && a->output == 0) return true;
  return false;
}

// FSTOptimizeA's steps for a stored machine without epsilon arcs, which only tags leave in the
// expanded machine: epsilon removal would copy it whole (the builder's largest machine, at the
// peak of its memory) and change nothing else. Pushing works in place on the caller's only
// handle; the model's canonical order makes the result the same model.
FSTGeneric OptimizeWithoutEpsilons(FSTGeneric m) {
  m = FSTPushWeightsInPlace(std::move(m));
  if (FSTNondeterministicStates(*m, true)) m = FSTDeterminize(m, 1, true, 0.001f, false);
  return FSTMinimize(std::move(m), 0.001f);
}

}  // namespace

void T2sBuildModel(FSTGeneric compiled, char const* model_path,
                   std::function<void(char const*)> const& stage,
                   std::function<FSTGeneric(FSTGeneric const&)> const& reweight) {
  auto begin = [&stage](char const* name) {
    if (stage) stage(name);
  };
  // Each stage lets go of what the previous one held before the next large machine is built:
  // at a million phrases a machine or its text costs a gigabyte.
  // 3-4. Optimise, keep the input side.
  begin("optimizing the grammar");
  FSTGeneric machine = FSTOptimizeA(std::move(compiled), 1, 0.001f);
  if (reweight) machine = reweight(machine);
  machine = FSTProject(machine, FSTArcOrderInput, FSTArcOrderAny);
  // 5-8. One byte per arc, built directly rather than written as text and read back (the same
  // machine, with the states of common prefixes shared), then optimised at the byte level.
  // Pages the first stage's machines held go back first, for this stage's larger machines.
  begin("expanding labels to bytes");
  machine = T2sExpandSharingPrefixes(machine);
  begin("optimizing the byte-level machine");
  FSTAllocator::gc();
  machine = HasEpsilonArcs(*machine) ? FSTOptimizeA(std::move(machine), 1, 0.001f)
                                     : OptimizeWithoutEpsilons(std::move(machine));
  // 9. The final text form (kept for inspection while debugging; it does not reach the model).
  (void)FstDumpAscii(machine);
  // The final weights the packed format cannot hold, on arcs.
  machine = T2sFinalWeightsOnArcs(std::move(machine));
  // 10. The packed model replaces the text. The model is released here rather than kept.
  begin("packing the model");
  std::unique_ptr<FstModel> model(FstDumpBinary(machine));
  machine = FSTGeneric();
  T2sCanonicalOrder(*model);
  SaveModel(model_path, model.get());
}

extern "C" int MakeT2sModel(const char* grammar_path, const char* model_path) {
  // No exception may leave a C entry point: an unreadable grammar (a directory, say) reads as
  // empty text, and anything thrown later fails the call.
  try {
    // 1. The grammar, every byte; a file that cannot be opened reads as empty text.
    std::string grammar;
    {
      std::ifstream in(grammar_path ? grammar_path : "", std::ios::binary);
      try {
        grammar.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
      } catch (...) {
        grammar.clear();
      }
    }
    // 2. Compile, tolerating references to undefined rules.
    FSTGeneric machine;
    std::string side_text;
    if (!FSTJsgfParseString(machine, side_text, grammar.c_str(), false, false, false, false, true))
      return 1;
    T2sBuildModel(std::move(machine), model_path);
    return 0;
  } catch (...) {
    return 1;
  }
}

extern "C" int MakeT2sModelWithClasses(const char* grammar_path, const char* model_path,
                                       int n_classes, const char* const* class_names,
                                       const char* const* class_files) {
  try {
    bool built = false;
    FSTStop stop;
    // A class file that cannot be read stops the library: here that fails the call.
    bool const finished = FSTCatchStops(
        [&] {
          FSTJsgfOptions options;
          options.allow_undefined = true;  // as MakeT2sModel tolerates them
          for (int i = 0; i < n_classes; ++i) {
            std::string name = class_names[i];
            if (name.size() > 2 && name.front() == '<' && name.back() == '>')
              name = name.substr(1, name.size() - 2);
            options.classes[name] = FSTJsgfPhraseClass(class_files[i]);
          }
          FSTGeneric machine;
          std::string messages;
          if (!FSTJsgfCompileFile(machine, messages, grammar_path ? grammar_path : "", options))
            return;
          T2sBuildModel(std::move(machine), model_path);
          built = true;
        },
        stop);
    return finished && built ? 0 : 1;
  } catch (...) {
    return 1;
  }
}
