// Trying a model by hand: for each line typed, the output and the path that gave it, as pieces
// of the spoken line with what each wrote.
#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "CommandSupport.h"
#include "Commands.h"
#include "t2s_runtime.h"

namespace {

// Finds, through the model's arcs, a path over a line (its words joined by single blanks) that
// writes exactly the decoder's outputs, and where each output was written: the runtime's best
// path says what was written, this walk says which bytes wrote it. Between two words the model
// reads a blank or a tab, or nothing, as the runtime does.
class PathExplainer {
 public:
  PathExplainer(t2s_model const* model, std::string const& text,
                std::vector<uint32_t> const& outputs)
      : _model(model), _text(text), _outputs(outputs), _written_at(outputs.size()) {}

  // For each output, the number of bytes of the line read when it was written; empty when no
  // path is found (which the runtime's search rules out).
  std::vector<size_t> Find() {
    int32_t const start = t2s_model_start(_model);
    if (start < 0 || !Walk(start, 0, 0)) return {};
    return _written_at;
  }

 private:
  bool Walk(int32_t state, size_t at, size_t written) {
    auto const key = std::make_tuple(state, at, written);
    if (!_tried.insert(key).second) return false;  // a dead end, or a cycle of epsilons
    uint32_t first, end;
    int final;
    t2s_model_state(_model, uint32_t(state), &first, &end, &final);
    if (at == _text.size() && written == _outputs.size() && final) return true;
    if (at < _text.size() && _text[at] == ' ' && Walk(state, at + 1, written)) return true;
    for (uint32_t a = first; a < end; ++a) {
      uint8_t input;
      uint32_t output;
      int32_t next;
      float weight;
      t2s_model_arc(_model, a, &input, &output, &next, &weight);
      bool const reads = input == 0 || (at < _text.size() &&
                                        (uint8_t(_text[at]) == input ||
                                         (_text[at] == ' ' && input == '\t')));
      if (!reads) continue;
      if (output && (written == _outputs.size() || _outputs[written] != output)) continue;
      size_t const after = at + (input != 0);
      if (output) _written_at[written] = after;
      if (Walk(next, after, written + (output != 0))) return true;
    }
    return false;
  }

  t2s_model const* _model;
  std::string const& _text;
  std::vector<uint32_t> const& _outputs;
  std::vector<size_t> _written_at;
  std::set<std::tuple<int32_t, size_t, size_t>> _tried;
};

std::string Trimmed(std::string const& text) {
  size_t const first = text.find_first_not_of(' ');
  if (first == std::string::npos) return "";
  return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

// The words of a line joined by single blanks.
std::string Words(std::string const& line) {
  std::string words, word;
  for (size_t i = 0; i <= line.size(); ++i) {
    bool const blank = i == line.size() || line[i] == ' ' || line[i] == '\t' || line[i] == '\r';
    if (!blank) {
      word += line[i];
    } else if (!word.empty()) {
      words += (words.empty() ? "" : " ") + word;
      word.clear();
    }
  }
  return words;
}

}  // namespace

int RunTry(int argc, char** argv) {
  Arguments args(argc, argv);
  if (!args.ok || args.positional.size() != 1) return UsageError("try", "give MODEL");
  t2s_model* model = LoadModel("try", args.positional[0],
                                args.has("--ignore-case") ? T2S_IGNORE_CASE : 0);
  if (!model) return 1;
  std::string const sep = args.value("--sep", " ");
  bool const prompt = isatty(STDIN_FILENO);
  t2s_decoder* decoder = t2s_decoder_new(model);
  std::string line;
  for (;;) {
    if (prompt) std::printf("> ");
    std::fflush(stdout);
    if (!std::getline(std::cin, line)) break;
    std::string const text = Words(line);
    uint32_t const* found;
    size_t n;
    float weight;
    if (!t2s_decoder_decode(decoder, text.data(), text.size(), &found, &n, &weight)) {
      std::printf("(no match)\n");
      continue;
    }
    std::vector<uint32_t> const outputs(found, found + n);
    std::string joined(t2s_model_join(model, found, n, sep.c_str(), nullptr, 0), '\0');
    t2s_model_join(model, found, n, sep.c_str(), &joined[0], joined.size() + 1);
    std::printf("%s\n", joined.c_str());
    std::vector<size_t> const written_at = PathExplainer(model, text, outputs).Find();
    size_t read = 0;
    for (size_t i = 0; i < written_at.size(); ++i) {
      std::string const spoken = Trimmed(text.substr(read, written_at[i] - read));
      std::printf("  %-30s -> %s\n", spoken.empty() ? "(nothing said)" : spoken.c_str(),
                  t2s_model_text(model, outputs[i], nullptr, nullptr));
      read = written_at[i];
    }
    std::string const rest = Trimmed(text.substr(read));
    if (!rest.empty()) std::printf("  %-30s -> (nothing written)\n", rest.c_str());
    std::printf("  weight %g\n", double(weight));
  }
  if (prompt) std::printf("\n");
  t2s_decoder_free(decoder);
  t2s_model_free(model);
  return 0;
}
