// Building T2S models from grammars.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
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
  FSTGeneric compiled;
  bool const compiled_ok = CompileGrammar("make-model", args, grammar, FSTJsgfOptions(), compiled);
  if (!compiled_ok) return 1;
  // Built beside the model and renamed into place: a failure or a kill never costs the old one.
  T2sBuildModel(compiled, output.temp_path().c_str(),
                [&progress](char const* stage) { progress.stage(stage); });
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
