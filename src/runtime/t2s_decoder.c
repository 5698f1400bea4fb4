/* Decoding text with a loaded T2S model: a search over the model's paths, one layer of states
   per input byte. */
#include <stdlib.h>
#include <string.h>
#ifdef __SSE2__
#include <emmintrin.h>
#endif

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

struct t2s_decoder {
  const t2s_model* model;
  entry* entries;
  size_t n_entries, capacity;
  size_t layer_begin; /* first entry of the current (last) layer */
  uint64_t* stamp;    /* per state: layer stamp << 32 | entry offset in the layer */
  uint32_t layer;     /* stamp of the current layer */
  int dead;
  int held;      /* a word byte fed but not consumed yet (the next byte decides its cost), or -1 */
  int separator; /* blanks were fed after a word byte */
  int fresh;     /* nothing fed since the last reset */
  uint32_t* outputs;
  size_t n_outputs, outputs_capacity;
};

/* Space, tab, CR, LF: bits 32, 9, 13, 10. */
static inline int is_blank(unsigned char c) { return c <= ' ' && ((0x100002600ull >> c) & 1); }

t2s_decoder* t2s_decoder_new(const t2s_model* model) {
  t2s_decoder* d = (t2s_decoder*)calloc(1, sizeof(t2s_decoder));
  if (!d) return NULL;
  d->model = model;
  d->stamp = (uint64_t*)calloc(model->num_states ? model->num_states : 1, sizeof(uint64_t));
  if (!d->stamp) {
    free(d);
    return NULL;
  }
  t2s_decoder_reset(d);
  return d;
}

void t2s_decoder_free(t2s_decoder* d) {
  if (!d) return;
  free(d->entries);
  free(d->stamp);
  free(d->outputs);
  free(d);
}

/* A fresh layer number; stamps are cleared when the numbers wrap around. */
static void next_layer(t2s_decoder* d) {
  if (++d->layer == UINT32_MAX) {
    memset(d->stamp, 0, (d->model->num_states ? d->model->num_states : 1) * sizeof(uint64_t));
    d->layer = 1;
  }
}

/* Layers of at most this many entries are searched directly, not through the per-state stamps
   (which cost a cache miss per step in a large model). */
#define SMALL_LAYER 8

/* Keeps the cheaper of an entry and a new way to its state; returns 1 when that was the new one. */
static int improve(entry* old, entry e) {
  if (e.inside > old->inside || (e.inside == old->inside && !(e.weight < old->weight))) return 0;
  *old = e;
  return 1;
}

/* The entry reached from entry i along an arc. */
static inline entry along(const entry* from, size_t i, const uint32_t* arc, int inside_word) {
  entry e = {arc[0], from->inside + (inside_word && arc[2] != 0), from->weight + arc_weight(arc),
             arc[2], (int64_t)i};
  return e;
}

/* Room for one more entry; out of memory, the search cannot go on and the decoder dies. */
static int reserve(t2s_decoder* d) {
  if (d->n_entries < d->capacity) return 1;
  size_t capacity = d->capacity ? 2 * d->capacity : 256;
  entry* bigger = (entry*)realloc(d->entries, capacity * sizeof(entry));
  if (!bigger) {
    d->dead = 1;
    return 0;
  }
  d->entries = bigger;
  d->capacity = capacity;
  return 1;
}

static int append(t2s_decoder* d, entry e) {
  if (!reserve(d)) return 0;
  d->entries[d->n_entries++] = e;
  return 1;
}

static uint32_t state_of(const t2s_decoder* d, uint32_t block) {
  return block_state(d->model->blocks + block);
}

/* relax() in a layer of SMALL_LAYER entries or more: found through the per-state stamps. */
static int relax_in_large_layer(t2s_decoder* d, entry e) {
  size_t const count = d->n_entries - d->layer_begin;
  if (count == SMALL_LAYER) {
    for (size_t i = d->layer_begin; i < d->n_entries; ++i)
      if (d->entries[i].block == e.block) return improve(&d->entries[i], e);
  } else {
    uint64_t mark = d->stamp[state_of(d, e.block)];
    if ((uint32_t)(mark >> 32) == d->layer)
      return improve(&d->entries[d->layer_begin + (mark & 0xffffffffu)], e);
  }
  if (!append(d, e)) return 0;
  /* A layer that outgrows direct search stamps every entry it has. */
  size_t const first = count == SMALL_LAYER ? d->layer_begin : d->n_entries - 1;
  for (size_t i = first; i < d->n_entries; ++i)
    d->stamp[state_of(d, d->entries[i].block)] =
        (uint64_t)d->layer << 32 | (uint64_t)(i - d->layer_begin);
  return 1;
}

/* Adds or improves the entry for a state (e.block) in the current layer; returns 1 when it
   changed. */
static inline int relax(t2s_decoder* d, entry e) {
  if (d->n_entries - d->layer_begin >= SMALL_LAYER) return relax_in_large_layer(d, e);
  for (size_t i = d->layer_begin; i < d->n_entries; ++i)
    if (d->entries[i].block == e.block) return improve(&d->entries[i], e);
  return append(d, e);
}

/* Takes an arc (its three words) from entry i into the current layer. */
static inline int take(t2s_decoder* d, size_t i, const uint32_t* arc, int inside_word) {
  return relax(d, along(&d->entries[i], i, arc, inside_word));
}

/* Follows epsilon-input arcs within the current layer until no cost improves. The loader refuses
   epsilon cycles that could lower a cost, so this ends; the sweep bound is a second guard. */
static void close_layer(t2s_decoder* d, int inside_word) {
  const t2s_model* m = d->model;
  if (!m->has_epsilon) return;
  for (uint32_t sweep = 0; sweep <= m->num_states; ++sweep) {
    int changed = 0;
    for (size_t i = d->layer_begin; i < d->n_entries; ++i) {
      const uint32_t* block = m->blocks + d->entries[i].block;
      if (!block_epsilon(block)) continue;
      const uint8_t* inputs = block_inputs(block);
      for (uint32_t k = 0, n = block_arcs(block); k < n && inputs[k] == 0; ++k)
        changed |= take(d, i, block_arc(block, k), inside_word);
    }
    if (!changed) return;
  }
}

typedef struct {
  uint32_t first, end;
} arc_span;

/* The positions of the arcs of a block that read c. The inputs are sorted, so c's arcs are one
   run: with SSE2 sixteen inputs are compared at once (sixteen bytes read from any input stay
   inside its block, as at least twelve bytes of arcs follow the inputs). */
static inline arc_span arcs_reading(const t2s_model* m, const uint32_t* block, uint8_t c) {
  arc_span span;
  if (block[1] & BLOCK_TABLE) {
    const uint32_t* table = m->byte_tables + (size_t)block[2] * BYTE_TABLE_SIZE;
    span.first = table[c];
    span.end = table[c + 1];
    return span;
  }
  const uint8_t* inputs = block_inputs(block);
  uint32_t const n = block_arcs(block);
  if (n == 1) {
    span.first = inputs[0] == c ? 0 : 1;
    span.end = 1;
    return span;
  }
#ifdef __SSE2__
  __m128i const wanted = _mm_set1_epi8((char)c);
  for (uint32_t k = 0; k < n; k += 16) {
    __m128i const chunk = _mm_loadu_si128((const __m128i*)(inputs + k));
    uint32_t const valid = n - k >= 16 ? 0xffffu : (1u << (n - k)) - 1;
    uint32_t equal = (uint32_t)_mm_movemask_epi8(_mm_cmpeq_epi8(chunk, wanted)) & valid;
    if (!equal) continue;
    span.first = k + (uint32_t)__builtin_ctz(equal);
    span.end = span.first;
    while (span.end < n && inputs[span.end] == c) ++span.end;
    return span;
  }
  span.first = span.end = n;
#else
  uint32_t k = 0;
  while (k < n && inputs[k] < c) ++k;
  span.first = k;
  while (k < n && inputs[k] == c) ++k;
  span.end = k;
#endif
  return span;
}

/* The one arc of a block that reads c, or NULL when there is none or more than one. */
static inline const uint32_t* single_arc(const t2s_model* m, const uint32_t* block, uint8_t c) {
  arc_span span = arcs_reading(m, block, c);
  return span.end - span.first == 1 ? block_arc(block, span.first) : NULL;
}

/* consume() where the layer is one state with one arc reading c, the common case: the entry
   goes straight in. Returns 0, having done nothing, where the general step is needed. */
static inline int consume_single_arc(t2s_decoder* d, uint8_t c, int inside_word) {
  size_t const at = d->layer_begin;
  if (d->n_entries - at != 1) return 0;
  const uint32_t* arc = single_arc(d->model, d->model->blocks + d->entries[at].block, c);
  if (!arc || !reserve(d)) return 0;
  d->layer_begin = d->n_entries++;
  d->entries[d->layer_begin] = along(&d->entries[at], at, arc, inside_word);
  if (block_epsilon(d->model->blocks + arc[0])) {
    next_layer(d);
    close_layer(d, inside_word);
  }
  return 1;
}

/* The bytes inside a word (from k), while the layer is one state with one arc for each: the
   current entry stays in registers. Returns the first byte left to the general step. */
static size_t read_word_bytes(t2s_decoder* d, const char* bytes, size_t k, size_t length) {
  const t2s_model* m = d->model;
  size_t at = d->layer_begin;
  entry current = d->entries[at];
  uint8_t held = (uint8_t)d->held;
  for (; k < length && bytes[k] && !is_blank((uint8_t)bytes[k]); ++k) {
    const uint32_t* arc = single_arc(m, m->blocks + current.block, held);
    if (!arc || !reserve(d)) break;
    current = along(&current, at, arc, 1);
    at = d->n_entries++;
    d->entries[at] = current;
    held = (uint8_t)bytes[k];
    if (block_epsilon(m->blocks + current.block)) {
      d->layer_begin = at;
      d->held = held;
      next_layer(d);
      close_layer(d, 1);
      return k + 1;
    }
  }
  d->layer_begin = at;
  d->held = held;
  return k;
}

/* A new layer from the arcs of the current one that read c. inside_word: the byte after c is
   another byte of c's word, so an output emitted on c is emitted inside a word. */
static void consume(t2s_decoder* d, uint8_t c, int inside_word) {
  if (consume_single_arc(d, c, inside_word)) return;
  const t2s_model* m = d->model;
  size_t previous_begin = d->layer_begin, previous_end = d->n_entries;
  d->layer_begin = d->n_entries;
  next_layer(d);
  for (size_t i = previous_begin; i < previous_end; ++i) {
    const uint32_t* block = m->blocks + d->entries[i].block;
    arc_span span = arcs_reading(m, block, c);
    for (uint32_t k = span.first; k < span.end; ++k) take(d, i, block_arc(block, k), inside_word);
  }
  if (d->n_entries == d->layer_begin)
    d->dead = 1;
  else
    close_layer(d, inside_word);
}

/* Between two words the model reads nothing or one blank byte (a space or a tab). */
static void separate(t2s_decoder* d) {
  const t2s_model* m = d->model;
  size_t previous_begin = d->layer_begin, previous_end = d->n_entries;
  /* Without blank arcs the new layer would be this one again (already closed): keep it. */
  int blank = 0;
  for (size_t i = previous_begin; i < previous_end && !blank; ++i)
    blank = (m->blocks[d->entries[i].block + 1] & BLOCK_BLANK) != 0;
  if (!blank) return;
  d->layer_begin = d->n_entries;
  next_layer(d);
  for (size_t i = previous_begin; i < previous_end; ++i) {
    entry skip = d->entries[i];
    skip.output = 0;
    skip.from = (int64_t)i;
    relax(d, skip);
  }
  static const uint8_t blanks[2] = {'\t', ' '};
  for (size_t i = previous_begin; i < previous_end; ++i) {
    const uint32_t* block = m->blocks + d->entries[i].block;
    for (int b = 0; b < 2; ++b) {
      arc_span span = arcs_reading(m, block, blanks[b]);
      for (uint32_t k = span.first; k < span.end; ++k) take(d, i, block_arc(block, k), 0);
    }
  }
  close_layer(d, 0);
}

/* Whether some entry of the current layer has an arc reading c. */
static int can_read(const t2s_decoder* d, uint8_t c) {
  const t2s_model* m = d->model;
  for (size_t i = d->layer_begin; i < d->n_entries; ++i) {
    arc_span span = arcs_reading(m, m->blocks + d->entries[i].block, c);
    if (span.first < span.end) return 1;
  }
  return 0;
}

void t2s_decoder_reset(t2s_decoder* d) {
  d->n_entries = 0;
  d->layer_begin = 0;
  d->held = -1;
  d->separator = 0;
  d->fresh = 1;
  next_layer(d);
  d->dead = d->model->start < 0;
  if (d->dead) return;
  entry start = {d->model->start_block, 0, 0.0f, 0, -1};
  if (append(d, start)) close_layer(d, 0);
}

int t2s_decoder_feed(t2s_decoder* d, const char* bytes, size_t length) {
  d->fresh = 0;
  for (size_t k = 0; k < length && !d->dead; ++k) {
    if (d->held >= 0 && d->n_entries - d->layer_begin == 1) {
      k = read_word_bytes(d, bytes, k, length);
      if (k == length) break;
    }
    uint8_t c = (uint8_t)bytes[k];
    if (c == 0) { /* a zero byte is epsilon, never input */
      d->dead = 1;
      break;
    }
    if (is_blank(c)) {
      if (d->held >= 0) {
        consume(d, (uint8_t)d->held, 0);
        d->held = -1;
        d->separator = 1;
      }
      continue;
    }
    if (d->held >= 0)
      consume(d, (uint8_t)d->held, 1);
    else if (d->separator)
      separate(d);
    d->separator = 0;
    d->held = c;
  }
  if (!d->dead && d->held >= 0 && !can_read(d, (uint8_t)d->held)) d->dead = 1;
  return !d->dead;
}

/* The entry of the current layer in a final state with the lowest cost, or -1. */
static int64_t best_final(const t2s_decoder* d) {
  int64_t best = -1;
  for (size_t i = d->layer_begin; i < d->n_entries; ++i) {
    const entry* e = &d->entries[i];
    if (!block_final(d->model->blocks + e->block)) continue;
    if (best < 0 || e->inside < d->entries[best].inside ||
        (e->inside == d->entries[best].inside && e->weight < d->entries[best].weight))
      best = (int64_t)i;
  }
  return best;
}

/* Appends an output to d->outputs; 0 when out of memory. */
static int push_output(t2s_decoder* d, uint32_t out) {
  if (d->n_outputs == d->outputs_capacity) {
    size_t capacity = d->outputs_capacity ? 2 * d->outputs_capacity : 16;
    uint32_t* bigger = (uint32_t*)realloc(d->outputs, capacity * sizeof(uint32_t));
    if (!bigger) return 0;
    d->outputs = bigger;
    d->outputs_capacity = capacity;
  }
  d->outputs[d->n_outputs++] = out;
  return 1;
}

/* The path's outputs, in order, into d->outputs. */
static int read_back(t2s_decoder* d, int64_t best) {
  d->n_outputs = 0;
  for (int64_t i = best; d->entries[i].from >= 0; i = d->entries[i].from)
    if (d->entries[i].output && !push_output(d, d->entries[i].output)) return 0;
  for (size_t i = 0; i < d->n_outputs / 2; ++i) {
    uint32_t t = d->outputs[i];
    d->outputs[i] = d->outputs[d->n_outputs - 1 - i];
    d->outputs[d->n_outputs - 1 - i] = t;
  }
  return 1;
}

/* The input ends here: the held byte is the last of its word. Its layer is scratch, dropped
   again by restore(), so more bytes can still be fed. */
static int64_t finish(t2s_decoder* d, size_t* keep_entries, size_t* keep_begin) {
  *keep_entries = d->n_entries;
  *keep_begin = d->layer_begin;
  if (d->dead) return -1;
  if (d->held >= 0) consume(d, (uint8_t)d->held, 0);
  return d->dead ? -1 : best_final(d);
}

static void restore(t2s_decoder* d, size_t keep_entries, size_t keep_begin) {
  if (d->held >= 0) d->dead = 0; /* only the scratch layer could have died */
  d->n_entries = keep_entries;
  d->layer_begin = keep_begin;
}

int t2s_decoder_accepts(t2s_decoder* d) {
  if (d->dead) return 0;
  size_t keep_entries, keep_begin;
  int found = finish(d, &keep_entries, &keep_begin) >= 0;
  restore(d, keep_entries, keep_begin);
  return found;
}

int t2s_decoder_best(t2s_decoder* d, const uint32_t** outputs, size_t* n_outputs, float* weight) {
  if (d->dead) return 0;
  size_t keep_entries, keep_begin;
  int64_t best = finish(d, &keep_entries, &keep_begin);
  int found = best >= 0 && read_back(d, best);
  if (found && weight) *weight = d->entries[best].weight;
  restore(d, keep_entries, keep_begin);
  if (!found) return 0;
  if (outputs) *outputs = d->outputs;
  if (n_outputs) *n_outputs = d->n_outputs;
  return 1;
}

/* Of the arcs of a block that read the last byte of a word (span; the text goes on at k), the
   one whose destination can go on: read the next word's first byte, or be final where the text
   ends. NULL where none or several can, or where a destination has epsilon or blank arcs. */
static const uint32_t* only_way_on(const t2s_model* m, const uint32_t* block, arc_span span,
                                   const char* bytes, size_t k, size_t length) {
  while (k < length && is_blank((uint8_t)bytes[k])) ++k;
  const uint32_t* found = NULL;
  for (uint32_t a = span.first; a < span.end; ++a) {
    const uint32_t* arc = block_arc(block, a);
    const uint32_t* to = m->blocks + arc[0];
    if (to[1] & (BLOCK_EPSILON | BLOCK_BLANK)) return NULL;
    if (k < length) {
      arc_span next = arcs_reading(m, to, (uint8_t)bytes[k]);
      if (next.first == next.end) continue;
    } else if (!block_final(to)) {
      continue;
    }
    if (found) return NULL;
    found = arc;
  }
  return found;
}

/* Of n arcs (from arc on) that read a byte inside a word, the one that emits nothing, or NULL
   when none or several do. */
static const uint32_t* only_silent_arc(const uint32_t* arc, uint32_t n) {
  const uint32_t* silent = NULL;
  for (; n > 0; --n, arc += 3) {
    if (arc[2]) continue;
    if (silent) return NULL;
    silent = arc;
  }
  return silent;
}

/* The text's one path that emits no output inside a word, followed while it is the only one:
   inside a word a byte has one arc without output, the last byte of a word has one arc, and no
   state on the way has epsilon arcs, nor blank arcs between two words. Ending in a final state,
   it is the best path (every other path emits inside a word) and its outputs are in d->outputs:
   1. Anything else is for the layered search to decide: 0. */
static int decode_clean_path(t2s_decoder* d, const char* bytes, size_t length, float* weight) {
  const t2s_model* m = d->model;
  if (m->start < 0) return 0;
  const uint32_t* block = m->blocks + m->start_block;
  float sum = 0.0f;
  d->n_outputs = 0;
  size_t k = 0;
  while (k < length && is_blank((uint8_t)bytes[k])) ++k;
  while (k < length) {
    uint8_t c = (uint8_t)bytes[k++];
    int const last = k == length || is_blank((uint8_t)bytes[k]);
    const uint32_t* arc;
    if (block_arcs(block) == 1) {
      /* One arc (so no byte table): its place, after one word of inputs, is known before the
         block is read, and the next block is fetched while the byte is checked. An epsilon or
         blank arc never matches here. */
      arc = block + 3;
      if (c == 0 || *block_inputs(block) != c) return 0;
    } else {
      if (block_epsilon(block)) return 0;
      arc_span span = arcs_reading(m, block, c);
      if (c == 0 || span.first == span.end) return 0;
      arc = block_arc(block, span.first);
      if (span.end - span.first > 1)
        arc = last ? only_way_on(m, block, span, bytes, k, length)
                   : only_silent_arc(arc, span.end - span.first);
      if (!arc) return 0;
    }
    if (!last && arc[2]) return 0;
    if (arc[2] && !push_output(d, arc[2])) return 0;
    sum += arc_weight(arc);
    block = m->blocks + arc[0];
    if (last) {
      while (k < length && is_blank((uint8_t)bytes[k])) ++k;
      if (k < length && (block[1] & BLOCK_BLANK)) return 0;
    }
  }
  if (block_epsilon(block) || !block_final(block)) return 0;
  *weight = sum;
  return 1;
}

int t2s_decoder_decode(t2s_decoder* d, const char* bytes, size_t length, const uint32_t** outputs,
                       size_t* n_outputs, float* weight) {
  float sum;
  int found = decode_clean_path(d, bytes, length, &sum);
  if (!found) {
    t2s_decoder_reset(d);
    found = t2s_decoder_feed(d, bytes, length) && t2s_decoder_best(d, NULL, NULL, &sum);
  }
  if (!d->fresh) t2s_decoder_reset(d);
  if (!found) return 0;
  if (outputs) *outputs = d->outputs;
  if (n_outputs) *n_outputs = d->n_outputs;
  if (weight) *weight = sum;
  return 1;
}
