/* A C host of the model runtime: applies a T2S model to each line of standard input and writes
   the outputs of the best path, joined by blanks; a line the model does not read gives an empty
   line and a report on standard error. Only libt2s_runtime is needed:

     cc t2s_apply.c $(pkg-config --cflags --libs t2s_runtime) -o t2s_apply
     ./t2s_apply times.t2s < recognised.txt */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "t2s_runtime.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: %s MODEL < TEXT\n", argv[0]);
    return 2;
  }
  char error[256];
  t2s_model* model = t2s_model_load(argv[1], error, sizeof error);
  if (!model) {
    fprintf(stderr, "%s: %s\n", argv[1], error);
    return 1;
  }
  t2s_decoder* decoder = t2s_decoder_new(model);
  char* line = NULL;
  size_t capacity_text = 256;
  char* text = malloc(capacity_text);
  if (!text) return 1;
  size_t capacity = 0, line_number = 0;
  ssize_t length;
  int status = 0;
  while ((length = getline(&line, &capacity, stdin)) >= 0) {
    ++line_number;
    if (length > 0 && line[length - 1] == '\n') --length;
    const uint32_t* outputs;
    size_t n_outputs;
    float weight;
    if (t2s_decoder_decode(decoder, line, (size_t)length, &outputs, &n_outputs, &weight)) {
      /* Joined as written text: blanks between outputs, none where one attaches. */
      size_t const needed = t2s_model_join(model, outputs, n_outputs, " ", text, capacity_text);
      if (needed >= capacity_text) {
        free(text);
        capacity_text = needed + 1;
        text = malloc(capacity_text);
        if (!text) return 1;
        t2s_model_join(model, outputs, n_outputs, " ", text, capacity_text);
      }
      puts(text);
    } else {
      putchar('\n');
      fflush(stdout);
      fprintf(stderr, "t2s_apply: line %zu: no match\n", line_number);
      status = 1;
    }
  }
  free(line);
  free(text);
  t2s_decoder_free(decoder);
  t2s_model_free(model);
  return status;
}
