/* The decoder's state, shared by its layered search (t2s_decoder.c) and its searches over a
   whole text (t2s_clean_path.c, t2s_longest_match.c). Private to the runtime. */
#ifndef T2S_DECODER_STATE_H
#define T2S_DECODER_STATE_H

#include <stdlib.h>
#include <string.h>

#include "t2s_model_layout.h"
#include "t2s_runtime.h"

/* The search keeps one layer of entries per input position: each entry is a state reached with
   its best cost, the entry it came from and the output of the arc taken from there, so the best
   path can be read back without the model. A cost is the number of outputs emitted inside a
   word, then the weight. */
typedef struct {
  uint32_t block;  /* the state's block (its word offset) */
  uint32_t inside; /* outputs emitted between two bytes of one word */
  float weight;
  uint32_t output; /* of the arc taken; 0 where a separator was skipped */
  int64_t from;    /* entry index, -1 at the start */
} entry;

/* A growing array of 32-bit words: a path's outputs, or a set of states (their blocks) for a
   search that only asks which states a text reaches. */
typedef struct {
  uint32_t* items;
  size_t n, capacity;
} word_list;

struct t2s_decoder {
  const t2s_model* model;
  entry* entries;
  size_t n_entries, capacity;
  size_t layer_begin; /* first entry of the current (last) layer */
  uint64_t* stamp;    /* per state: layer stamp << 32 | entry offset in the layer */
  uint32_t layer;     /* stamp of the current layer */
  int dead;
  int held;       /* a word byte fed but not consumed yet (the next byte decides its cost), or -1 */
  int separator;  /* blanks were fed after a word byte */
  int fresh;      /* nothing fed since the last reset */
  int renumbered; /* a set took a fresh layer number since the last reset */
  word_list outputs;   /* of the path found */
  word_list sets[2];   /* t2s_decoder_longest_match's layers */
  word_list batch;     /* t2s_decoder_decode_many's outputs of all its texts */
  word_list second;    /* and of the second text in flight */
  char* folded;        /* the text with capitals made small, for a model that ignores case */
  size_t folded_capacity;
  const char** folded_texts; /* and t2s_decoder_decode_many's texts in it */
  size_t folded_texts_capacity;
  const uint32_t* way; /* set_step's last arc taken */
  size_t ways;         /* and their number */
};

/* Layers of at most this many entries are searched directly, not through the per-state stamps
   (which cost a cache miss per step in a large model). */
#define SMALL_LAYER 8

/* A fresh layer number; stamps are cleared when the numbers wrap around. */
static inline void next_layer(t2s_decoder* d) {
  if (++d->layer == UINT32_MAX) {
    memset(d->stamp, 0, (d->model->num_states ? d->model->num_states : 1) * sizeof(uint64_t));
    d->layer = 1;
  }
}

/* The block's number for the stamps (one per state). */
static inline uint32_t state_of(const t2s_decoder* d, uint32_t block) {
  return block_number(d->model, block);
}

/* The array reallocated to twice its capacity (to first when empty), the capacity updated; NULL,
   leaving both as they are, when out of memory. */
static inline void* grown(void* array, size_t* capacity, size_t element_size, size_t first) {
  size_t const bigger_capacity = *capacity ? 2 * *capacity : first;
  void* bigger = realloc(array, bigger_capacity * element_size);
  if (bigger) *capacity = bigger_capacity;
  return bigger;
}

/* t2s_decoder_feed and t2s_decoder_decode on text already folded (see folded_text). */
int t2s_feed_folded(t2s_decoder* d, const char* bytes, size_t length);
int t2s_decode_folded(t2s_decoder* d, const char* bytes, size_t length, const uint32_t** outputs,
                      size_t* n_outputs, float* weight);

/* Room for n bytes of folded text; 0 when out of memory. */
static inline int reserve_folded(t2s_decoder* d, size_t n) {
  if (n <= d->folded_capacity) return 1;
  size_t const capacity = n > 2 * d->folded_capacity ? n : 2 * d->folded_capacity;
  char* bigger = (char*)realloc(d->folded, capacity);
  if (!bigger) return 0;
  d->folded = bigger;
  d->folded_capacity = capacity;
  return 1;
}

/* The text as the model reads it: for a model loaded to ignore case, a copy at offset at of the
   decoder's buffer (reserved by the caller) with ASCII capitals made small; else the text. */
static inline const char* fold_into(t2s_decoder* d, const char* bytes, size_t length, size_t at) {
  if (!d->model->fold_case) return bytes;
  char* to = d->folded + at;
  for (size_t i = 0; i < length; ++i) {
    char const c = bytes[i];
    to[i] = (char)(c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c);
  }
  return to;
}

/* Byte k of a text as the model reads it (a capital made small where it ignores case). */
static inline uint8_t text_byte(const t2s_model* m, const char* bytes, size_t k) {
  uint8_t const c = (uint8_t)bytes[k];
  return m->fold_case && c >= 'A' && c <= 'Z' ? (uint8_t)(c + ('a' - 'A')) : c;
}

/* One text folded (see fold_into); NULL when out of memory. */
static inline const char* folded_text(t2s_decoder* d, const char* bytes, size_t length) {
  if (!d->model->fold_case) return bytes;
  return reserve_folded(d, length ? length : 1) ? fold_into(d, bytes, length, 0) : NULL;
}

/* Appends a word to a list; 0 when out of memory. */
static inline int list_push(word_list* list, uint32_t word) {
  if (list->n == list->capacity) {
    uint32_t* bigger = (uint32_t*)grown(list->items, &list->capacity, sizeof(uint32_t), 16);
    if (!bigger) return 0;
    list->items = bigger;
  }
  list->items[list->n++] = word;
  return 1;
}

#endif
