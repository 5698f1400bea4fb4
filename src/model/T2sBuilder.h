// The T2S model builder's stages: the character expansion of a machine's labels (text in,
// text out) and the packed little-endian model file that a runtime reads into flat arrays.
#ifndef T2SFST_T2SBUILDER_H
#define T2SFST_T2SBUILDER_H

#include <cstdint>
#include <iosfwd>
#include <functional>
#include <string>
#include <vector>

#include "FSTGeneric.h"

// ---- the pipeline ----

// A machine whose final weights are all one: any other final weight moves to an epsilon arc
// into one new final state (the packed model keeps only a final flag).
FSTGeneric T2sFinalWeightsOnArcs(FSTGeneric m);

// The model builder's stages after compilation: optimise, project, expand to bytes, optimise
// again, write the packed model to path in its canonical order. The compiled grammar is the
// machine that FSTJsgfParseString or FSTJsgfCompileFile gives. The model is the one that the
// expansion's text, read back and optimised by FSTOptimizeA, would give; the builder reaches it
// with less: the expanded machine is built directly with shared prefixes, and epsilon removal
// and determinization are skipped where they would change nothing. Time and memory linear in
// the grammar's bytes in practice (10^6 phrases: about 20 s and 2 GB).
// stage, when given, hears the name of each step as it begins (for progress reports);
// reweight, when given, replaces the optimized grammar's weights before it is projected. The
// compiled machine is let go after the first optimisation when the caller passes its only handle.
void T2sBuildModel(FSTGeneric compiled, char const* path,
                   std::function<void(char const*)> const& stage = nullptr,
                   std::function<FSTGeneric(FSTGeneric const&)> const& reweight = nullptr);

// The optimized grammar (tokens "spoken:written" on its arcs) with its weights re-estimated by
// expectation-maximisation from a corpus of lines "spoken text<TAB>written text": each state's
// arcs and final weight become the probabilities (as costs) with which the examples use them,
// a count of 0.5 added to each alternative of a state the examples visit, so that no
// alternative is lost. report hears each iteration's log-likelihood and how many of how many
// examples no path explains. A line without a tab stops, naming the file and line.
FSTGeneric T2sTrainWeights(FSTGeneric const& optimized, std::string const& corpus_file,
                           int iterations,
                           std::function<void(int, double, size_t, size_t)> const& report);

// ---- character expansion ----

// One parsed line of the text format. Labels stay fields of that format: "," is epsilon and
// white space inside a label is escaped (see FSTEscapeLabel).
struct Arc {
  char kind = 0;  // 'T' for an arc
  uint64_t from = 0;
  uint64_t to = 0;
  std::string input;
  std::string output;
  float weight = 0;  // 0 when absent
};

// kind and from; for an arc also to, input, output and weight, blank-separated, no newline.
std::ostream& operator<<(std::ostream& os, Arc const& arc);

// The machine's text form with its header line.
std::string FstDumpAscii(FSTGeneric const& machine);

// Parses one line. For an arc, the first label token carries both sides as "input:output"
// (split at its last ':'; without one, both sides are the token); the second token is ignored.
Arc ParseLine(std::string const& line);

// The lines (joined by "\n", no final newline) that replace an arc: one arc per byte of its
// input, new states taken from *next_state. The output and weight go on the last byte's arc.
std::string ExpandArc(Arc const& arc, unsigned long* next_state);

// The machine's text form with every input label split into byte arcs: all non-arc lines
// first, then the expanded arcs.
std::string ConvertLabelToCharValue(FSTGeneric const& machine);

// The machine that ConvertLabelToCharValue's text reads back as, in the same language, built
// directly (weights and labels as the text carries them), with the arcs of one state that
// spell a common prefix sharing its states: fewer states for the byte-level optimisation, and
// no text of the whole machine. Time linear in the bytes spelt, plus a sort of each state's
// tokens.
FSTGeneric T2sExpandSharingPrefixes(FSTGeneric const& machine);

// ---- packed model ----

struct FstModel {
  struct State {
    uint32_t first_arc;
    uint32_t end_arc;
    uint8_t final;
  };
  struct ModelArc {
    uint8_t input;    // byte of the matched text; 0 is epsilon
    uint32_t output;  // index into the sorted string table; 0 is the empty string
    int32_t next;
    float weight;
  };
  int32_t start = -1;  // -1 when the machine has no initial state
  uint32_t num_states = 0;
  std::vector<State> states;
  uint32_t num_arcs = 0;
  std::vector<ModelArc> arcs;
  uint32_t num_strings = 0;
  uint32_t pool_size = 0;
  std::vector<char> pool;  // the output strings in index order, each zero-terminated
};

// Builds the model of a character-expanded machine; the caller owns (deletes) it.
FstModel* FstDumpBinary(FSTGeneric const& machine);

// ---- a canonical order ----

// Where two paths tie, the runtime keeps the one it meets first, that is, the one on the earlier
// arc. The optimisers order arcs by label numbers, which depend on what the process did before,
// so the builder orders the model itself: each state's arcs by input byte, then by output string
// in byte order, and the states as a depth-first walk from the start enters them. The same
// grammar then gives the same model in any process. Linear in the model, plus a sort of each
// state's arcs.
void T2sCanonicalOrder(FstModel& model);

// Writes the model little-endian: start, the 12-byte state records, the 16-byte arc records,
// the string count, the pool size and the pool; padding bytes are zero.
void SaveModel(char const* path, FstModel* model);

#endif
