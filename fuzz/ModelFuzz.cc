// The packed model runtime: loading any bytes, then decoding texts with whatever loaded.
#include <cstring>

#include "FuzzTarget.h"
#include "t2s_runtime.h"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  char error[256];
  t2s_model* model = t2s_model_from_memory(data, size, error, sizeof error);
  if (!model) return 0;
  t2s_decoder* decoder = t2s_decoder_new(model);
  // Texts: a few fixed ones with blanks, and the input's own last bytes (which steer the search
  // through the model they describe).
  char const* texts[] = {"", "a", "ab cd", " a  b ", "\t", nullptr};
  size_t lengths[6];
  size_t tail = size < 48 ? size : 48;
  texts[5] = reinterpret_cast<char const*>(data + size - tail);
  for (int round = 0; round < 6; ++round) {
    char const* text = texts[round];
    size_t length = lengths[round] = round < 5 ? std::strlen(text) : tail;
    t2s_decoder_reset(decoder);
    for (size_t i = 0; i < length; ++i) {
      t2s_decoder_feed(decoder, text + i, 1);
      t2s_decoder_accepts(decoder);
    }
    uint32_t const* outputs;
    size_t n;
    float weight;
    if (t2s_decoder_best(decoder, &outputs, &n, &weight))
      for (size_t i = 0; i < n; ++i) t2s_model_string(model, outputs[i]);
    if (t2s_decoder_decode(decoder, text, length, &outputs, &n, &weight))
      for (size_t i = 0; i < n; ++i) t2s_model_string_length(model, outputs[i]);
    if (t2s_decoder_longest_match(decoder, text, length, &outputs, &n, &weight))
      for (size_t i = 0; i < n; ++i) t2s_model_string_length(model, outputs[i]);
  }
  t2s_decoded results[6];
  uint32_t const* outputs;
  if (t2s_decoder_decode_many(decoder, texts, lengths, 6, results, &outputs))
    for (t2s_decoded const& r : results)
      for (size_t i = 0; i < r.n_outputs; ++i)
        t2s_model_string_length(model, outputs[r.first_output + i]);
  t2s_decoder_free(decoder);
  t2s_model_free(model);
  return 0;
}
