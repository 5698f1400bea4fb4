// Back-off n-gram models: compiling ARPA files, scoring text, packing models.
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>

#include "CommandSupport.h"
#include "Commands.h"

int RunNgramCompile(int argc, char** argv) {
  Arguments args(argc, argv);
  if (!args.ok || args.positional.size() != 2) return UsageError("ngram-compile", "give ARPA OUT");
  std::ifstream in(args.positional[0]);
  if (!in) {
    std::fprintf(stderr, "t2sfst ngram-compile: cannot read %s\n", args.positional[0].c_str());
    return 1;
  }
  OutputFile output("ngram-compile", args.positional[1]);
  if (!output.ok()) return 1;
  FSTGeneric model;
  std::string error;
  if (!FSTNgramReadArpa(in, args.positional[0].c_str(), model, error)) {
    std::fprintf(stderr, "t2sfst ngram-compile: %s\n", error.c_str());
    return 1;
  }
  if (args.has("--binary"))
    FSTNgramDumpBinary(model, output.stream());
  else
    FSTNgramCast(model)->dump_ngram(output.stream());
  return output.commit() ? 0 : 1;
}

namespace {

bool IsCompiledNgram(std::string const& path) {
  char head[8] = {};
  std::ifstream file(path, std::ios::binary);
  file.read(head, sizeof head);
  return FSTNgramIsBinary(head, size_t(file.gcount()));
}

FSTNgramRep const* LoadModel(char const* command, std::string const& path, FSTGeneric& holder) {
  holder = LoadInput(command, path);
  if (!holder) return nullptr;
  FSTNgramRep const* model = FSTNgramCast(holder);
  if (!model) std::fprintf(stderr, "t2sfst %s: %s is not an n-gram model\n", command, path.c_str());
  return model;
}

}  // namespace

int RunNgramScore(int argc, char** argv) {
  Arguments args(argc, argv);
  if (!args.ok || args.positional.empty()) return UsageError("ngram-score", "give MODEL [TEXT...]");
  // A compiled file is scored where it lies; any other model through its machine.
  std::string const& path = args.positional[0];
  std::unique_ptr<FSTNgramBinary> compiled;
  FSTGeneric holder;
  FSTNgramRep const* model = nullptr;
  if (IsCompiledNgram(path)) {
    compiled = FSTNgramBinary::Map(path);
  } else if (!(model = LoadModel("ngram-score", path, holder))) {
    return 1;
  }
  bool const unknown = compiled ? compiled->unknown != compiled->none : model->unknown_word() != 0;
  bool all_scored = true;
  size_t line_number = 0;
  // The cost -ln P of "<s> words </s>", with back-off; words outside the vocabulary are the
  // unknown-word token, or make the line's cost infinite.
  bool const perplexity = args.has("--perplexity");
  double total_cost = 0;
  size_t sentences = 0, words = 0, oov = 0;
  auto score = [&](std::string const& line) {
    ++line_number;
    FSTNgramSentenceScore const scored = compiled ? compiled->score(line) : model->score(line);
    if (perplexity) {
      // Words outside the vocabulary are counted and left out, as perplexity tools do.
      ++sentences;
      total_cost += scored.cost;
      words += scored.words;
      oov += scored.oov;
      return;
    }
    if (scored.oov && !unknown)
      std::fprintf(stderr, "t2sfst ngram-score: line %zu: word '%s' is not in the vocabulary\n",
                   line_number, scored.first_oov.c_str());
    if ((scored.oov && !unknown) || scored.cost >= 1e29) {
      std::printf("inf\n");
      all_scored = false;
    } else {
      std::printf("%.4f\n", scored.cost);
    }
  };
  if (args.positional.size() > 1) {
    for (size_t i = 1; i < args.positional.size(); ++i) score(args.positional[i]);
  } else {
    for (std::string line; std::getline(std::cin, line);) score(line);
  }
  if (perplexity) {
    std::printf("sentences %zu, words %zu, out of vocabulary %zu, cost %.4f, perplexity ",
                sentences, words, oov, total_cost);
    if (words && total_cost < 1e29)
      std::printf("%.4f\n", std::exp(total_cost / double(words)));
    else
      std::printf("%s\n", words ? "inf" : "nan");
  }
  return all_scored ? 0 : 1;
}

int RunNgramPack(int argc, char** argv) {
  Arguments args(argc, argv);
  if (!args.ok || args.positional.size() != 2 || args.positional[1] == "-")
    return UsageError("ngram-pack", "give MODEL OUT");
  FSTGeneric holder;
  if (!LoadModel("ngram-pack", args.positional[0], holder)) return 1;
  OutputFile output("ngram-pack", args.positional[1]);
  if (!output.ok()) return 1;
  // The digest names the file the user asked for; the bytes go through the temporary one.
  std::string digest = FSTNgramDumpPackedQuiet(holder, output.temp_path().c_str());
  if (!output.commit()) return 1;
  std::printf("MD5 (%s) = %s\n", args.positional[1].c_str(), digest.c_str());
  return 0;
}
