// Building T2S models from grammars and applying them to text.
#include <chrono>
#include <cstdio>
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
  Arguments args(argc, argv, {"--allow-undefined"}, {"-I", "--max-states"});
  if (!args.ok || args.positional.size() != 2)
    return UsageError("make-model", "give GRAMMAR MODEL");
  std::string const& grammar = args.positional[0];
  std::string const& model_path = args.positional[1];
  if (model_path == "-") return UsageError("make-model", "MODEL must be a file");
  OutputFile output("make-model", model_path);
  if (!output.ok()) return 1;
  auto start = std::chrono::steady_clock::now();
  FSTGeneric compiled;
  if (!CompileGrammar("make-model", args, grammar, FSTJsgfOptions(), compiled)) return 1;
  // Built beside the model and renamed into place: a failure or a kill never costs the old one.
  T2sBuildModel(compiled, output.temp_path().c_str());
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
  std::printf("%s: %u states, %u arcs, %u output strings, %lld bytes, %.3f s\n", model_path.c_str(),
              t2s_model_num_states(model), t2s_model_num_arcs(model), t2s_model_num_strings(model),
              bytes, seconds);
  t2s_model_free(model);
  return 0;
}

namespace {

// The blank-separated words of a line (blanks: spaces and tabs).
std::vector<std::pair<char const*, size_t>> Words(std::string const& line) {
  std::vector<std::pair<char const*, size_t>> words;
  char const* c = line.data();
  char const* end = c + line.size();
  while (c < end) {
    while (c < end && (*c == ' ' || *c == '\t' || *c == '\r')) ++c;
    char const* start = c;
    while (c < end && *c != ' ' && *c != '\t' && *c != '\r') ++c;
    if (c > start) words.push_back({start, size_t(c - start)});
  }
  return words;
}

std::string Joined(t2s_model const* model, uint32_t const* outputs, size_t n,
                   std::string const& separator) {
  std::string text;
  for (size_t i = 0; i < n; ++i) {
    if (i) text += separator;
    text += t2s_model_string(model, outputs[i]);
  }
  return text;
}

// The whole line must be read by the model (blanks between words are its to read or skip).
bool ApplyLine(t2s_model const* model, t2s_decoder* decoder, std::string const& line,
               std::string const& separator, std::string& out) {
  uint32_t const* outputs;
  size_t n;
  t2s_decoder_reset(decoder);
  if (!t2s_decoder_feed(decoder, line.data(), line.size()) ||
      !t2s_decoder_best(decoder, &outputs, &n, nullptr))
    return false;
  out = Joined(model, outputs, n, separator);
  return true;
}

// From the left, the longest run of words that the model reads is replaced by its outputs; a
// word that starts no such run is copied. Each word of a run costs one step and one acceptance
// check; the path is read back once per run.
std::string RewriteLine(t2s_model const* model, t2s_decoder* decoder, std::string const& line,
                        std::string const& separator) {
  auto const words = Words(line);
  std::string out;
  auto emit = [&out](std::string const& piece) {
    if (piece.empty()) return;
    if (!out.empty()) out += ' ';
    out += piece;
  };
  auto feed = [&](size_t j, size_t first) {
    if (j > first && !t2s_decoder_feed(decoder, " ", 1)) return false;
    return t2s_decoder_feed(decoder, words[j].first, words[j].second) != 0;
  };
  for (size_t i = 0; i < words.size();) {
    t2s_decoder_reset(decoder);
    size_t end = i;
    for (size_t j = i; j < words.size() && feed(j, i); ++j)
      if (t2s_decoder_accepts(decoder)) end = j + 1;
    if (end == i) {
      emit(std::string(words[i].first, words[i].second));
      ++i;
      continue;
    }
    t2s_decoder_reset(decoder);
    for (size_t j = i; j < end; ++j) feed(j, i);
    uint32_t const* outputs;
    size_t n;
    if (t2s_decoder_best(decoder, &outputs, &n, nullptr)) emit(Joined(model, outputs, n, separator));
    i = end;
  }
  return out;
}

}  // namespace

int RunApply(int argc, char** argv) {
  std::ios::sync_with_stdio(false);  // lines go through iostreams only: no stdio round trip
  std::cin.tie(nullptr);             // reading a line need not flush the outputs (a write each)
  Arguments args(argc, argv, {"--rewrite"}, {"--sep"});
  if (!args.ok || args.positional.empty()) return UsageError("apply", "give MODEL [TEXT...]");
  char error[256];
  t2s_model* model = t2s_model_load(args.positional[0].c_str(), error, sizeof error);
  if (!model) {
    std::fprintf(stderr, "t2sfst apply: %s\n", error);
    return 1;
  }
  t2s_decoder* decoder = t2s_decoder_new(model);
  std::string separator = args.value("--sep", " ");
  bool rewrite = args.has("--rewrite"), all_matched = true;
  size_t line_number = 0;
  // One output line per input line, so outputs line up with inputs; a miss is an empty line.
  auto handle = [&](std::string const& line) {
    ++line_number;
    if (rewrite) {
      std::cout << RewriteLine(model, decoder, line, separator) << "\n";
      return;
    }
    std::string out;
    bool matched = ApplyLine(model, decoder, line, separator, out);
    std::cout << out << "\n";
    if (!matched) {
      std::cout.flush();
      std::cerr << "line " << line_number << ": no match\n";
      all_matched = false;
    }
  };
  if (args.positional.size() > 1) {
    for (size_t i = 1; i < args.positional.size(); ++i) handle(args.positional[i]);
  } else {
    for (std::string line; std::getline(std::cin, line);) handle(line);
  }
  std::cout.flush();
  t2s_decoder_free(decoder);
  t2s_model_free(model);
  return all_matched ? 0 : 1;
}
