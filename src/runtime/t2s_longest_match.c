/* The longest start of a text that the model reads, found by which states the text reaches:
   without costs, one state or a small set a byte, and the best path only where it is not the
   text's only path. */
#include "t2s_decoder_state.h"

/* Adds a block to a set; 0 when out of memory. A small set is searched directly, a larger one
   through the per-state stamps under a fresh layer number (which the layered search then no
   longer recognises: d->renumbered). */
static inline int set_add(t2s_decoder* d, word_list* set, uint32_t block) {
  if (set->n < SMALL_LAYER) {
    for (size_t i = 0; i < set->n; ++i)
      if (set->items[i] == block) return 1;
  } else if ((uint32_t)(d->stamp[state_of(d, block)] >> 32) == d->layer) {
    return 1;
  }
  if (!list_push(set, block)) return 0;
  if (set->n == SMALL_LAYER) {
    next_layer(d);
    d->renumbered = 1;
    for (size_t i = 0; i < set->n; ++i)
      d->stamp[state_of(d, set->items[i])] = (uint64_t)d->layer << 32;
  } else if (set->n > SMALL_LAYER) {
    d->stamp[state_of(d, block)] = (uint64_t)d->layer << 32;
  }
  return 1;
}

/* Whether a state may go on to read byte c: it has epsilon arcs or, by its byte bits, perhaps
   arcs reading c. */
static int may_read(const t2s_model* m, uint32_t block_offset, uint8_t c) {
  const uint32_t* block = m->blocks + block_offset;
  return block_epsilon(block) || block_may_read(block, c);
}

/* Of n arcs (from arc on), the one to a state that may read byte c, or NULL when none or
   several are. */
static const uint32_t* only_arc_to_reader(const t2s_model* m, const uint32_t* arc, uint32_t n,
                                          uint8_t c) {
  const uint32_t* found = NULL;
  for (; n > 0; --n, arc += 3) {
    if (!may_read(m, arc[0], c)) continue;
    if (found) return NULL;
    found = arc;
  }
  return found;
}

/* Adds the destinations of the arcs of a set's blocks that read c (0: epsilon arcs, followed
   from the blocks added meanwhile too); counts the arcs taken in d->ways, the last in d->way.
   With next >= 0 (the byte after c, in the same word), of several arcs only those to states
   that may read it: the others would end there. */
static inline int set_step(t2s_decoder* d, const word_list* from, word_list* to, uint8_t c,
                           int next) {
  const t2s_model* m = d->model;
  for (size_t i = 0; i < from->n; ++i) {
    const uint32_t* block = m->blocks + from->items[i];
    if (c == 0 && !block_epsilon(block)) continue;
    arc_span span = arcs_reading(m, block, c);
    int const filter = next >= 0 && span.end - span.first > 1;
    for (uint32_t k = span.first; k < span.end; ++k) {
      const uint32_t* arc = block_arc(block, k);
      if (filter && !may_read(m, arc[0], (uint8_t)next)) continue;
      if (!set_add(d, to, arc[0])) return 0;
      d->way = arc;
      ++d->ways;
    }
  }
  return 1;
}

/* The layer after reading c (c < 0: a separator, which may also be read by no arc; no from: the
   start), its epsilon arcs followed; next as in set_step. */
static inline int set_next(t2s_decoder* d, const word_list* from, word_list* to, int c, int next) {
  to->n = 0;
  d->ways = 0;
  if (!from) {
    if (!set_add(d, to, d->model->start_block)) return 0;
  } else if (c >= 0) {
    if (!set_step(d, from, to, (uint8_t)c, next)) return 0;
  } else {
    for (size_t i = 0; i < from->n; ++i)
      if (!set_add(d, to, from->items[i])) return 0;
    if (!set_step(d, from, to, ' ', -1) || !set_step(d, from, to, '\t', -1)) return 0;
  }
  return !d->model->has_epsilon || set_step(d, to, to, 0, -1);
}

static int any_final(const t2s_decoder* d, const word_list* set) {
  for (size_t i = 0; i < set->n; ++i)
    if (block_final(d->model->blocks + set->items[i])) return 1;
  return 0;
}

static int any_blank_arc(const t2s_decoder* d, const word_list* set) {
  for (size_t i = 0; i < set->n; ++i)
    if (block_blank(d->model->blocks + set->items[i])) return 1;
  return 0;
}

/* The step from a layer of one state (its block) on byte c, where that state has one arc for c
   (of several, the one to a state that may read next, the word's next byte or -1) to a state
   without epsilon arcs: 1 and that arc. 0: no arc reads c. -1: the step needs a set. */
static int one_way(const t2s_model* m, const uint32_t* block, uint8_t c, int next,
                   const uint32_t** arc) {
  if (block_one(block)) {
    *arc = block_only_arc(block);
    if (block_one_input(block) != c) return 0;
  } else {
    arc_span span = arcs_reading(m, block, c);
    if (span.first == span.end) return 0;
    *arc = block_arc(block, span.first);
    if (span.end - span.first > 1 &&
        (next < 0 || !(*arc = only_arc_to_reader(m, *arc, span.end - span.first, (uint8_t)next))))
      return -1;
  }
  return m->has_epsilon && block_epsilon(m->blocks + (*arc)[0]) ? -1 : 1;
}

/* A layer of one state as a set (the first of the decoder's two), or NULL when out of memory. */
static word_list* set_of_one(t2s_decoder* d, uint32_t block) {
  word_list* set = &d->sets[0];
  set->n = 0;
  return set_add(d, set, block) ? set : NULL;
}

/* The longest prefix is found by which states the text reaches, without costs: a layer of one
   state is held as that state, a larger one as a set. While the layers hold one state reached one
   way, the text has one path, whose outputs are kept as it goes; past that, the prefix found is
   decoded. */
size_t t2s_decoder_longest_match(t2s_decoder* d, const char* bytes, size_t length,
                                 const uint32_t** outputs, size_t* n_outputs, float* weight) {
  const t2s_model* m = d->model;
  size_t longest = 0, longest_outputs = 0, k = 0;
  uint32_t one = m->start_block; /* the layer, when it is one state */
  word_list* layer = NULL;       /* the layer, when it is a set */
  int single = 1;                /* one path so far */
  int longest_single = 0;
  float sum = 0.0f, longest_sum = 0.0f;
  d->outputs.n = 0;
  int alive = m->start >= 0;
  if (alive && m->has_epsilon && block_epsilon(m->blocks + one)) {
    layer = &d->sets[0];
    alive = set_next(d, NULL, layer, 0, -1);
    single = d->ways == 0;
  }
  while (k < length && is_blank((uint8_t)bytes[k])) ++k;
  while (alive && k < length && bytes[k]) {
    /* Folded byte by byte where the model ignores case: the match ends long before the text. */
    uint8_t const c = text_byte(m, bytes, k++);
    int const next = k < length && !is_blank((uint8_t)bytes[k]) ? text_byte(m, bytes, k) : -1;
    const uint32_t* arc = NULL;
    if (!layer) {
      int const way = one_way(m, m->blocks + one, c, next, &arc);
      if (way == 0) break;
      if (way > 0) {
        one = arc[0];
      } else {
        if (!(layer = set_of_one(d, one))) break;
      }
    }
    if (layer) {
      word_list* to = layer == &d->sets[0] ? &d->sets[1] : &d->sets[0];
      if (!set_next(d, layer, to, c, next) || to->n == 0) break;
      single = single && layer->n == 1 && d->ways == 1;
      arc = d->way;
      layer = to->n == 1 ? (one = to->items[0], NULL) : to;
    }
    if (single) {
      if (arc[2] && !list_push(&d->outputs, arc[2])) break;
      sum += arc_weight(arc);
    }
    if (next >= 0) continue;
    if (layer ? any_final(d, layer) : block_final(m->blocks + one)) {
      longest = k;
      longest_single = single;
      longest_outputs = d->outputs.n;
      longest_sum = sum;
    }
    while (k < length && is_blank((uint8_t)bytes[k])) ++k;
    if (k < length && (layer ? any_blank_arc(d, layer) : block_blank(m->blocks + one))) {
      if (!layer && !(layer = set_of_one(d, one))) break;
      word_list* to = layer == &d->sets[0] ? &d->sets[1] : &d->sets[0];
      alive = set_next(d, layer, to, -1, -1);
      single = single && d->ways == 0;
      layer = to->n == 1 ? (one = to->items[0], NULL) : to;
    }
  }
  /* The layered search's state is untouched unless the sets renumbered the layers. */
  if (d->renumbered || !d->fresh) t2s_decoder_reset(d);
  if (!longest) return 0;
  if (!longest_single) {
    const char* const prefix = folded_text(d, bytes, longest);
    return prefix && t2s_decode_folded(d, prefix, longest, outputs, n_outputs, weight) ? longest
                                                                                       : 0;
  }
  d->outputs.n = longest_outputs;
  if (outputs) *outputs = d->outputs.items;
  if (n_outputs) *n_outputs = d->outputs.n;
  if (weight) *weight = longest_sum;
  return longest;
}
