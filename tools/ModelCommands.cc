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
#include "T2sModel.h"
#include "t2s_runtime.h"

int RunMakeModel(int argc, char** argv) {
  Arguments args(argc, argv, {}, {});
  if (!args.ok || args.positional.size() != 2)
    return UsageError("make-model", "give GRAMMAR MODEL");
  std::string const& grammar = args.positional[0];
  std::string const& model_path = args.positional[1];
  if (!std::ifstream(grammar)) {
    std::fprintf(stderr, "t2sfst make-model: cannot read %s\n", grammar.c_str());
    return 1;
  }
  if (!CanWrite("make-model", model_path)) return 1;
  auto start = std::chrono::steady_clock::now();
  int status = MakeT2sModel(grammar.c_str(), model_path.c_str());
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  if (status != 0) {
    // The entry point reports nothing: compile once more for the parser's messages.
    FSTGeneric m;
    std::string messages;
    FSTJsgfParseFile(m, messages, grammar, false, false, false, false, true);
    std::cerr << messages;
    std::fprintf(stderr, "t2sfst make-model: %s does not compile\n", grammar.c_str());
    return 1;
  }
  char error[256];
  t2s_model* model = t2s_model_load(model_path.c_str(), error, sizeof error);
  if (!model) {
    std::fprintf(stderr, "t2sfst make-model: %s\n", error);
    return 1;
  }
  std::ifstream written(model_path, std::ios::binary | std::ios::ate);
  std::printf("%s: %u states, %u arcs, %u output strings, %lld bytes, %.3f s\n", model_path.c_str(),
              t2s_model_num_states(model), t2s_model_num_arcs(model), t2s_model_num_strings(model),
              static_cast<long long>(written.tellg()), seconds);
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

// The words of the line, blanks left out (the model spells tokens without separators), must be
// one accepted string.
bool ApplyLine(t2s_model const* model, t2s_decoder* decoder, std::string const& line,
               std::string const& separator, std::string& out) {
  uint32_t const* outputs;
  size_t n;
  t2s_decoder_reset(decoder);
  bool alive = true;
  for (auto const& w : Words(line))
    if (alive) alive = t2s_decoder_feed(decoder, w.first, w.second);
  if (!alive || !t2s_decoder_best(decoder, &outputs, &n, nullptr)) return false;
  out = Joined(model, outputs, n, separator);
  return true;
}

// From the left, the longest run of words whose bytes (blanks left out) the model accepts is
// replaced by its outputs; a word that starts no such run is copied.
std::string RewriteLine(t2s_model const* model, t2s_decoder* decoder, std::string const& line,
                        std::string const& separator) {
  auto const words = Words(line);
  std::string out;
  auto emit = [&out](std::string const& piece) {
    if (piece.empty()) return;
    if (!out.empty()) out += ' ';
    out += piece;
  };
  for (size_t i = 0; i < words.size();) {
    t2s_decoder_reset(decoder);
    size_t end = i;
    std::string best;
    for (size_t j = i; j < words.size(); ++j) {
      if (!t2s_decoder_feed(decoder, words[j].first, words[j].second)) break;
      uint32_t const* outputs;
      size_t n;
      if (t2s_decoder_best(decoder, &outputs, &n, nullptr)) {
        end = j + 1;
        best = Joined(model, outputs, n, separator);
      }
    }
    if (end > i) {
      emit(best);
      i = end;
    } else {
      emit(std::string(words[i].first, words[i].second));
      ++i;
    }
  }
  return out;
}

}  // namespace

int RunApply(int argc, char** argv) {
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
  auto handle = [&](std::string const& line) {
    if (rewrite) {
      std::cout << RewriteLine(model, decoder, line, separator) << "\n";
      return;
    }
    std::string out;
    if (ApplyLine(model, decoder, line, separator, out)) {
      std::cout << out << "\n";
    } else {
      std::cout.flush();
      std::fprintf(stderr, "no match\n");
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
