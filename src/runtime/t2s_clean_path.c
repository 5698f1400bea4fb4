/* The best path of whole texts, one at a time or two in flight. Where a text has one path that
   emits nothing inside its words, that path is followed directly; the layered search decides the
   rest. */
#include "t2s_decoder_state.h"

/* Whether a path from block may read the word bytes[k..end) without an output inside it. It
   follows the only arc without output of each byte but the last, which any arc may read; a state
   with epsilon arcs, or with several arcs without output for a byte, may. */
static int may_read_word(const t2s_model* m, const uint32_t* block, const char* bytes, size_t k,
                         size_t end) {
  for (;; ++k) {
    if (block_epsilon(block)) return 1;
    arc_span const span = arcs_reading(m, block, (uint8_t)bytes[k]);
    if (k + 1 == end) return span.first != span.end;
    const uint32_t* silent = NULL;
    for (uint32_t a = span.first; a < span.end; ++a) {
      const uint32_t* arc = block_arc(block, a);
      if (arc[2]) continue;
      if (silent) return 1;
      silent = arc;
    }
    if (!silent) return 0;
    block = m->blocks + silent[0];
  }
}

/* Of the arcs of a block that read the last byte of a word (span; the text goes on at k), the
   one whose destination may go on: read the next word's first byte (by its byte bits), or be
   final where the text ends. Where several may, the one that may read the whole next word
   without an output inside it: every path through another emits inside a word. NULL where none
   or several remain, or where a destination has epsilon or blank arcs. */
static const uint32_t* only_way_on(const t2s_model* m, const uint32_t* block, arc_span span,
                                   const char* bytes, size_t k, size_t length) {
  while (k < length && is_blank((uint8_t)bytes[k])) ++k;
  const uint32_t* found = NULL;
  int several = 0;
  for (uint32_t a = span.first; a < span.end; ++a) {
    const uint32_t* arc = block_arc(block, a);
    const uint32_t* to = m->blocks + arc[0];
    if (to[0] & (BLOCK_EPSILON | BLOCK_BLANK)) return NULL;
    if (k < length ? !block_may_read(to, (uint8_t)bytes[k]) : !block_final(to)) continue;
    several = found != NULL;
    if (several) break;
    found = arc;
  }
  if (!several) return found;
  if (k == length) return NULL; /* final states: their weights decide */
  size_t end = k;
  while (end < length && !is_blank((uint8_t)bytes[end])) ++end;
  found = NULL;
  for (uint32_t a = span.first; a < span.end; ++a) {
    const uint32_t* arc = block_arc(block, a);
    if (!may_read_word(m, m->blocks + arc[0], bytes, k, end)) continue;
    if (found) return NULL;
    found = arc;
  }
  return found;
}

/* A text's clean path, the one that emits no output inside a word, followed while it is the only
   one: inside a word a byte has one arc without output, the last byte of a word has one arc (or
   one whose destination may go on), and no state on the way has epsilon arcs, nor blank arcs
   between two words. Read to a final state, it is the best path: every other path emits inside a
   word. */
typedef struct {
  const char* bytes;
  size_t length, k; /* the text and the next byte to read */
  const uint32_t* block;
  float sum;
  word_list out; /* where the outputs go, held here while the walk runs: walk_finish puts it back */
} clean_walk;

enum { WALK_ON, WALK_READ, WALK_LOST }; /* WALK_LOST: for the layered search to decide */

/* The walk's steps are inlined wherever they are taken, so that a walk lives in registers. */
#if defined(__GNUC__)
#define WALK_INLINE static inline __attribute__((always_inline))
#else
#define WALK_INLINE static inline
#endif

static inline int walk_end(const uint32_t* block) {
  return !block_epsilon(block) && block_final(block) ? WALK_READ : WALK_LOST;
}

WALK_INLINE int walk_start(const t2s_model* m, clean_walk* w, const char* bytes, size_t length,
                           const word_list* out) {
  w->bytes = bytes;
  w->length = length;
  w->k = 0;
  w->block = m->blocks + m->start_block;
  w->sum = 0.0f;
  w->out = *out;
  if (m->start < 0) return WALK_LOST;
  while (w->k < length && is_blank((uint8_t)bytes[w->k])) ++w->k;
  size_t const k = w->k;
  if (k + 2 < length && (uint8_t)bytes[k + 2] > ' ') { /* a word of three bytes or more */
    start_pair const pair = m->start_pairs[m->pair_class[(uint8_t)bytes[k]] * m->n_pair_classes +
                                           m->pair_class[(uint8_t)bytes[k + 1]]];
    if (pair.block != NO_PAIR) {
      w->block = m->blocks + pair.block;
      w->sum = pair.weight;
      w->k = k + 2;
    }
  }
  return w->k < length ? WALK_ON : walk_end(w->block);
}

/* Reads one byte along the clean path. */
WALK_INLINE int walk_step(const t2s_model* m, clean_walk* w) {
  const char* const bytes = w->bytes;
  size_t const length = w->length;
  size_t k = w->k;
  const uint32_t* block = w->block;
  uint8_t const c = (uint8_t)bytes[k++];
  int const last = k == length || is_blank((uint8_t)bytes[k]);
  const uint32_t* arc;
  if (block_one(block)) {
    /* One arc: its place is known before the block is read, and the next block is fetched
       while the byte is checked. A blank arc never matches here. */
    arc = block_only_arc(block);
    if (block_one_input(block) != c) return WALK_LOST;
  } else if (!last) {
    if (!(arc = clean_arc_inside_word(m, block, c))) return WALK_LOST;
  } else {
    if (block_epsilon(block)) return WALK_LOST;
    arc_span span = arcs_reading(m, block, c);
    if (c == 0 || span.first == span.end) return WALK_LOST;
    arc = block_arc(block, span.first);
    if (span.end - span.first > 1 && !(arc = only_way_on(m, block, span, bytes, k, length)))
      return WALK_LOST;
  }
  if (!last && arc[2]) return WALK_LOST;
  if (arc[2] && !list_push(&w->out, arc[2])) return WALK_LOST;
  w->sum += arc_weight(arc);
  block = m->blocks + arc[0];
  if (last) {
    while (k < length && is_blank((uint8_t)bytes[k])) ++k;
    if (k < length && block_blank(block)) return WALK_LOST;
  }
  w->k = k;
  w->block = block;
  return k < length ? WALK_ON : walk_end(block);
}

/* The layered search's best path for a text, into d->outputs; the decoder is left reset. */
static int decode_layered(t2s_decoder* d, const char* bytes, size_t length, float* weight) {
  t2s_decoder_reset(d);
  int const found = t2s_feed_folded(d, bytes, length) && t2s_decoder_best(d, NULL, NULL, weight);
  t2s_decoder_reset(d);
  return found;
}

int t2s_decoder_decode(t2s_decoder* d, const char* bytes, size_t length, const uint32_t** outputs,
                       size_t* n_outputs, float* weight) {
  bytes = folded_text(d, bytes, length);
  if (!bytes) return 0;
  return t2s_decode_folded(d, bytes, length, outputs, n_outputs, weight);
}

int t2s_decode_folded(t2s_decoder* d, const char* bytes, size_t length, const uint32_t** outputs,
                      size_t* n_outputs, float* weight) {
  clean_walk w;
  d->outputs.n = 0;
  int state = walk_start(d->model, &w, bytes, length, &d->outputs);
  while (state == WALK_ON) state = walk_step(d->model, &w);
  d->outputs = w.out;
  float sum = w.sum;
  int const found = state == WALK_READ || decode_layered(d, bytes, length, &sum);
  if (!d->fresh) t2s_decoder_reset(d);
  if (!found) return 0;
  if (outputs) *outputs = d->outputs.items;
  if (n_outputs) *n_outputs = d->outputs.n;
  if (weight) *weight = sum;
  return 1;
}

/* Appends n words to a list; 0 when out of memory. */
static inline int list_append(word_list* list, const uint32_t* words, size_t n) {
  if (n == 0) return 1; /* the list may have no array yet */
  while (list->capacity - list->n < n) {
    uint32_t* bigger = (uint32_t*)grown(list->items, &list->capacity, sizeof(uint32_t), 16);
    if (!bigger) return 0;
    list->items = bigger;
  }
  uint32_t* to = list->items + list->n;
  for (size_t i = 0; i < n; ++i) to[i] = words[i]; /* a few words: no memcpy call */
  list->n += n;
  return 1;
}

/* A lost walk's text decoded by the layered search, its outputs into the batch from first on:
   WALK_READ or WALK_LOST, -1 when out of memory. */
static int settle_lost(t2s_decoder* d, const char* bytes, size_t length, float* weight,
                       size_t first) {
  d->batch.n = first;
  if (!decode_layered(d, bytes, length, weight)) return WALK_LOST;
  return list_append(&d->batch, d->outputs.items, d->outputs.n) ? WALK_READ : -1;
}

/* A text's result where its walk ended (state): the clean path's, with outputs from first on in
   the batch, or else the layered search's. 0 when out of memory. */
WALK_INLINE int settle(t2s_decoder* d, const char* bytes, size_t length, float weight, int state,
                       size_t first, t2s_decoded* result) {
  if (state != WALK_READ && (state = settle_lost(d, bytes, length, &weight, first)) < 0) return 0;
  result->found = state == WALK_READ;
  result->weight = result->found ? weight : 0.0f;
  result->first_output = first;
  result->n_outputs = d->batch.n - first;
  return 1;
}

int t2s_decoder_decode_many(t2s_decoder* d, const char* const* texts, const size_t* lengths,
                            size_t n, t2s_decoded* results, const uint32_t** outputs) {
  const t2s_model* m = d->model;
  d->batch.n = 0;
  if (!d->fresh) t2s_decoder_reset(d);
  if (m->fold_case) {
    /* All texts folded into one buffer first: growing it later would move the earlier ones. */
    size_t total = 1;
    for (size_t k = 0; k < n; ++k) total += lengths[k];
    if (n > d->folded_texts_capacity) {
      const char** bigger = (const char**)realloc((void*)d->folded_texts, n * sizeof(char*));
      if (!bigger) return 0;
      d->folded_texts = bigger;
      d->folded_texts_capacity = n;
    }
    if (!reserve_folded(d, total)) return 0;
    for (size_t k = 0, at = 0; k < n; at += lengths[k++])
      d->folded_texts[k] = fold_into(d, texts[k], lengths[k], at);
    texts = d->folded_texts;
  }
  size_t i = 0;
  for (; i + 1 < n; i += 2) {
    /* Two walks in one loop, so that each one's next block is fetched while the other's is
       read. The first writes its outputs straight into the batch, the second beside it. */
    size_t const first = d->batch.n;
    d->second.n = 0;
    clean_walk a, b;
    int sa = walk_start(m, &a, texts[i], lengths[i], &d->batch);
    int sb = walk_start(m, &b, texts[i + 1], lengths[i + 1], &d->second);
    while (sa == WALK_ON && sb == WALK_ON) {
      sa = walk_step(m, &a);
      sb = walk_step(m, &b);
    }
    while (sa == WALK_ON) sa = walk_step(m, &a);
    while (sb == WALK_ON) sb = walk_step(m, &b);
    d->batch = a.out;
    d->second = b.out;
    if (!settle(d, a.bytes, a.length, a.sum, sa, first, &results[i])) return 0;
    size_t const second = d->batch.n;
    if (sb == WALK_READ && !list_append(&d->batch, d->second.items, d->second.n)) return 0;
    if (!settle(d, b.bytes, b.length, b.sum, sb, second, &results[i + 1])) return 0;
  }
  if (i < n) {
    size_t const first = d->batch.n;
    clean_walk a;
    int sa = walk_start(m, &a, texts[i], lengths[i], &d->batch);
    while (sa == WALK_ON) sa = walk_step(m, &a);
    d->batch = a.out;
    if (!settle(d, a.bytes, a.length, a.sum, sa, first, &results[i])) return 0;
  }
  if (outputs) *outputs = d->batch.items;
  return 1;
}
