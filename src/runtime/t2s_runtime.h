/* Runtime for T2S model files: loads a model into flat arrays, validating it completely, and
   finds the best path that consumes a given text from the start to a final state, giving that
   path's output strings. No dependency on the toolkit.

   The text is words separated by blanks (space, tab, CR, LF). Between two words the model reads
   nothing or one blank byte (a space or a tab), so a token spelt with a blank matches its words
   and tokens may run together; blanks before the first word and after the last are ignored.
   Among the paths that read the text, the best emits the fewest outputs inside a word (on a
   byte that is not the last of its word, or on an epsilon arc between two bytes of one word),
   then has the lowest weight: "ab cde" prefers ab + cde to abc + de, and "abcde" is decided by
   weight alone. Among paths still equal, the one on the earlier arcs wins (the builder orders
   each state's arcs by byte, then by output string).

   A model is refused at load time when it is truncated or inconsistent, has a weight that is
   not a number, or has a cycle of epsilon arcs through an arc of negative weight.

   A loaded model is never written to: decoders of one model may run at once in different
   threads, each decoder in one thread at a time. Loading and freeing a model, like any call on
   one decoder, must not overlap with other calls on it. */
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
/* The same with options. T2S_IGNORE_CASE: the model matches ASCII letters whatever their case
   (its arcs and every text fed are read with capitals made small); outputs are unchanged. */
#define T2S_IGNORE_CASE 1
t2s_model* t2s_model_load_with(const char* path, int options, char* error, size_t error_size);
t2s_model* t2s_model_from_memory_with(const void* data, size_t size, int options, char* error,
                                      size_t error_size);

uint32_t t2s_model_num_states(const t2s_model* model);
uint32_t t2s_model_num_arcs(const t2s_model* model);
uint32_t t2s_model_num_strings(const t2s_model* model);
/* Output string i (0 is the empty string, epsilon). */
const char* t2s_model_string(const t2s_model* model, uint32_t index);
/* Its length in bytes (0 when out of range). */
size_t t2s_model_string_length(const t2s_model* model, uint32_t index);

/* Attached outputs. A written form that begins with "@@" attaches to the output before it, one
   that ends with "@@" attaches to the output after it: no separator goes between the two ("$@@"
   then "4" "@@.69" writes "$4.69"). A backslash before a mark at either end ("\@@") keeps it
   as literal text; a form of "@@" alone attaches on both sides. t2s_model_text gives output
   string i as written text, without its marks, with its length and T2S_ATTACH_PREVIOUS and
   T2S_ATTACH_NEXT in *attach (either pointer may be NULL); NULL when out of range. */
#define T2S_ATTACH_PREVIOUS 1
#define T2S_ATTACH_NEXT 2
const char* t2s_model_text(const t2s_model* model, uint32_t index, size_t* length, int* attach);
/* Whether attach_next of one output or attach_previous of the next joins them. */
static inline int t2s_attached(int attach_before, int attach_after) {
  return (attach_before & T2S_ATTACH_NEXT) || (attach_after & T2S_ATTACH_PREVIOUS);
}
/* A path's outputs joined as written text: sep between two of them unless they attach. Writes
   at most size bytes, zero-terminated when size > 0, and returns the whole text's length (as
   snprintf does: call again with a larger buffer when it is not smaller than size). */
size_t t2s_model_join(const t2s_model* model, const uint32_t* outputs, size_t n,
                      const char* sep, char* buffer, size_t size);
/* A look inside: the start state (-1: none); state i's arcs [first, end) and final flag; arc i's
   input byte (0: epsilon), output string, destination and weight. Each state's arcs are sorted
   by input byte. Indices out of range give 0 and leave the outputs alone. */
int32_t t2s_model_start(const t2s_model* model);
int t2s_model_state(const t2s_model* model, uint32_t index, uint32_t* first_arc, uint32_t* end_arc,
                    int* final);
int t2s_model_arc(const t2s_model* model, uint32_t index, uint8_t* input, uint32_t* output,
                  int32_t* next, float* weight);

/* A decoder holds the search over one input; reuse it for many inputs of one model. */
t2s_decoder* t2s_decoder_new(const t2s_model* model);
void t2s_decoder_free(t2s_decoder* decoder);
/* Back to the start state with no input consumed. */
void t2s_decoder_reset(t2s_decoder* decoder);
/* Consumes more text (a word may be split across calls); returns 0 when no path can read it (the
   decoder is then dead until reset), 1 otherwise. A zero byte never matches. */
int t2s_decoder_feed(t2s_decoder* decoder, const char* bytes, size_t length);
/* Whether some path over everything fed ends in a final state; cheaper than t2s_decoder_best
   (the path is not read back). */
int t2s_decoder_accepts(t2s_decoder* decoder);
/* The best path over everything fed that ends in a final state: 1 and its output string indices
   in order (epsilon outputs left out; valid until the decoder changes) and total weight, or 0
   when there is none. More text may be fed afterwards. */
int t2s_decoder_best(t2s_decoder* decoder, const uint32_t** outputs, size_t* n_outputs,
                     float* weight);
/* The best path for one whole text: what t2s_decoder_reset, t2s_decoder_feed and
   t2s_decoder_best give, found without the layered search when the text has a single path that
   emits nothing inside its words. The decoder is left reset. */
int t2s_decoder_decode(t2s_decoder* decoder, const char* bytes, size_t length,
                       const uint32_t** outputs, size_t* n_outputs, float* weight);
/* The best paths of n whole texts, each as t2s_decoder_decode finds it, faster: two texts are
   followed at once, so that the memory reads of one overlap those of the other. results[i] says
   whether texts[i] was read and with what weight; its outputs are n_outputs indices from
   first_output on in *outputs (valid until the decoder changes). 0 when out of memory. The
   decoder is left reset. */
typedef struct {
  int found;
  float weight;
  size_t first_output, n_outputs;
} t2s_decoded;
int t2s_decoder_decode_many(t2s_decoder* decoder, const char* const* texts, const size_t* lengths,
                            size_t n, t2s_decoded* results, const uint32_t** outputs);
/* The longest start of a text that ends with a word and that some path reads: its length in
   bytes, from the text's first byte to the end of that word (0: none), and, as from
   t2s_decoder_best, that start's best path. Feeding the words one by one and asking
   t2s_decoder_accepts after each tells the same, more slowly. The decoder is left reset. */
size_t t2s_decoder_longest_match(t2s_decoder* decoder, const char* bytes, size_t length,
                                 const uint32_t** outputs, size_t* n_outputs, float* weight);

#ifdef __cplusplus
}
#endif

#endif
