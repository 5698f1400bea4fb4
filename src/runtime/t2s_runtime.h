/* Runtime for T2S model files: loads a model into flat arrays, validating it completely, and
   finds the best (lowest weight) path that consumes exactly a given byte string from the start
   to a final state, giving that path's output strings. No dependency on the toolkit. */
#ifndef T2S_RUNTIME_H
#define T2S_RUNTIME_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct t2s_model t2s_model;
typedef struct t2s_decoder t2s_decoder;

/* A model from a file or from memory; NULL on failure, with the reason in error (which may be
   NULL). A bad file is refused, never read out of bounds. */
t2s_model* t2s_model_load(const char* path, char* error, size_t error_size);
t2s_model* t2s_model_from_memory(const void* data, size_t size, char* error, size_t error_size);
void t2s_model_free(t2s_model* model);

uint32_t t2s_model_num_states(const t2s_model* model);
uint32_t t2s_model_num_arcs(const t2s_model* model);
uint32_t t2s_model_num_strings(const t2s_model* model);
/* Output string i (0 is the empty string, epsilon). */
const char* t2s_model_string(const t2s_model* model, uint32_t index);

/* A decoder holds the search over one input; reuse it for many inputs of one model. */
t2s_decoder* t2s_decoder_new(const t2s_model* model);
void t2s_decoder_free(t2s_decoder* decoder);
/* Back to the start state with no input consumed. */
void t2s_decoder_reset(t2s_decoder* decoder);
/* Consumes more bytes; returns 0 when no path can consume them (the decoder is then dead until
   reset), 1 otherwise. */
int t2s_decoder_feed(t2s_decoder* decoder, const char* bytes, size_t length);
/* The best path over everything fed that ends in a final state: 1 and its output string indices
   in order (epsilon outputs left out; valid until the decoder changes) and total weight, or 0
   when there is none. */
int t2s_decoder_best(t2s_decoder* decoder, const uint32_t** outputs, size_t* n_outputs,
                     float* weight);

#ifdef __cplusplus
}
#endif

#endif
