// Building T2S models from grammars.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "CommandSupport.h"
#include "Commands.h"
#include "T2sBuilder.h"
#include "t2s_runtime.h"

int RunMakeModel(int argc, char** argv) {
  Arguments args(argc, argv);
  if (!args.ok || args.positional.size() != 2)
    return UsageError("make-model", "give GRAMMAR MODEL");
  std::string const& grammar = args.positional[0];
  std::string const& model_path = args.positional[1];
  if (model_path == "-") return UsageError("make-model", "MODEL must be a file");
  OutputFile output("make-model", model_path);
  if (!output.ok()) return 1;
  auto start = std::chrono::steady_clock::now();
  Progress progress("make-model", args);
  progress.stage("compiling the grammar");
  FSTJsgfOptions options;
  for (std::string const& given : args.values("--class")) {
    size_t const equals = given.find('=');
    std::string name = given.substr(0, equals == std::string::npos ? 0 : equals);
    if (name.size() > 2 && name.front() == '<' && name.back() == '>') name = name.substr(1, name.size() - 2);
    if (name.empty() || equals + 1 >= given.size())
      return UsageError("make-model", "--class takes NAME=FILE");
    std::string const file = given.substr(equals + 1);
    if (!std::ifstream(file)) {
      std::fprintf(stderr, "t2sfst make-model: cannot read %s%s\n", file.c_str(),
                   WrongKindOfFile(file, FileKind::grammar).c_str());
      return 1;
    }
    options.classes[name] = FSTJsgfPhraseClass(file);
  }
  FSTGeneric compiled;
  bool const compiled_ok = CompileGrammar("make-model", args, grammar, options, compiled);
  if (!compiled_ok) return 1;
  // Built beside the model and renamed into place: a failure or a kill never costs the old one.
  std::function<FSTGeneric(FSTGeneric const&)> reweight;
  std::string const corpus = args.value("--train");
  int iterations;
  if (!args.number("--iterations", 5, 1, 1000000, iterations)) return 2;
  bool const quiet = args.has("--quiet");
  if (!corpus.empty()) {
    reweight = [&](FSTGeneric const& grammar) {
      progress.stage("training the weights");
      return T2sTrainWeights(grammar, corpus, iterations,
                             [&](int iteration, double log_likelihood, size_t unexplained, size_t n) {
                               if (quiet) return;
                               progress.clear();
                               std::printf("training: iteration %d: log-likelihood %.4f", iteration,
                                           log_likelihood);
                               if (unexplained)
                                 std::printf(" (%zu of %zu examples no path explains)", unexplained, n);
                               std::printf("\n");
                               std::fflush(stdout);
                             });
    };
  }
  T2sBuildModel(std::move(compiled), output.temp_path().c_str(),
                [&progress](char const* stage) { progress.stage(stage); }, reweight);
  progress.clear();
  char error[256];
  t2s_model* model = t2s_model_load(output.temp_path().c_str(), error, sizeof error);
  if (!model) {
    std::fprintf(stderr, "t2sfst make-model: %s\n", error);
    return 1;
  }
  std::ifstream written(output.temp_path(), std::ios::binary | std::ios::ate);
  long long bytes = static_cast<long long>(written.tellg());
  if (!output.commit()) {
    t2s_model_free(model);
    return 1;
  }
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  if (!args.has("--quiet"))
    std::printf("%s: %u states, %u arcs, %u output strings, %lld bytes, %.3f s\n", model_path.c_str(),
              t2s_model_num_states(model), t2s_model_num_arcs(model), t2s_model_num_strings(model),
              bytes, seconds);
  t2s_model_free(model);
  return 0;
}
