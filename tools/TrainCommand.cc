// t2sfst train: the weights of a machine estimated from a corpus by expectation-maximisation.
#include <cstdio>
#include <iostream>

#include "CommandSupport.h"
#include "Commands.h"

int RunTrain(int argc, char** argv) {
  Arguments args(argc, argv);
  if (!args.ok || args.positional.size() != 3) return UsageError("train", "give MACHINE CORPUS OUT");
  if (args.has("--pairs") && args.has("--outputs"))
    return UsageError("train", "--pairs and --outputs exclude each other");
  int iterations;
  double smoothing;
  if (!args.number("--iterations", 10, 0, 1000000, iterations) ||
      !args.number("--smoothing", 0, 0, 1e30, false, smoothing))
    return 2;
  std::string const& out = args.positional[2];
  OutputFile file("train", out);
  if (!file.ok()) return 1;
  FSTGeneric m = LoadInput("train", args.positional[0]);
  if (!m) return 1;
  FSTSemiringBase const* semiring = m->semiring();
  FSTTrainOptions options;
  options.iterations = iterations;
  options.smoothing = smoothing;
  options.by_output_label = args.has("--by-output-label");
  options.sides = args.has("--pairs")     ? FSTTrainData::pairs
                  : args.has("--outputs") ? FSTTrainData::outputs
                                          : FSTTrainData::inputs;
  std::vector<FSTTrainExample> const corpus = FSTTrainReadCorpus(args.positional[1], options.sides);
  // The figures go beside the machine, never into it.
  FILE* report = out.empty() || out == "-" ? stderr : stdout;
  options.report = [&](int iteration, double log_likelihood, size_t impossible) {
    std::fprintf(report, "iteration %d: log-likelihood %.6f", iteration, log_likelihood);
    if (impossible)
      std::fprintf(report, " (%zu of %zu examples left out: the machine cannot produce them)",
                   impossible, corpus.size());
    std::fprintf(report, "\n");
  };
  FSTGeneric trained = FSTConvert_to_PlusTimes(m);
  m = FSTGeneric();
  double const log_likelihood = FSTTrainEM(trained, corpus, options);
  std::fprintf(report, "trained: log-likelihood %.6f\n", log_likelihood);
  if (semiring != FSTPlusTimes)
    trained = new FSTBasicRep(trained, FSTArcOrderInput, FSTArcOrderOutput, false, false, semiring);
  if (args.has("--binary"))
    trained->dump_binary(file.stream());
  else
    trained->dump_ascii(file.stream(), true);
  return file.commit() ? 0 : 1;
}
