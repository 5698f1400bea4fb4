/* Decoding text with a loaded T2S model: a search over the model's paths, one layer of states
   per input byte. */
#include <stdlib.h>
#include <string.h>

#include "t2s_decoder_state.h"

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
  free(d->folded);
  free((void*)d->folded_texts);
  word_list* lists[] = {&d->outputs, &d->sets[0], &d->sets[1], &d->batch, &d->second};
  for (size_t i = 0; i < sizeof lists / sizeof *lists; ++i) free(lists[i]->items);
  free(d);
}

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
  entry* bigger = (entry*)grown(d->entries, &d->capacity, sizeof(entry), 256);
  if (!bigger) {
    d->dead = 1;
    return 0;
  }
  d->entries = bigger;
  return 1;
}

static int append(t2s_decoder* d, entry e) {
  if (!reserve(d)) return 0;
  d->entries[d->n_entries++] = e;
  return 1;
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
   epsilon cycles that could lower a cost, so this ends; the sweep bound is a second guard. A
   sweep reaches the entries it adds itself; only a cheaper way to an entry already there calls
   for another. */
static void close_layer(t2s_decoder* d, int inside_word) {
  const t2s_model* m = d->model;
  if (!m->has_epsilon) return;
  for (uint32_t sweep = 0; sweep <= m->num_states; ++sweep) {
    int improved = 0;
    for (size_t i = d->layer_begin; i < d->n_entries; ++i) {
      const uint32_t* block = m->blocks + d->entries[i].block;
      if (!block_epsilon(block)) continue;
      const uint8_t* inputs = block_inputs(block);
      for (uint32_t k = 0, n = block_arcs(block); k < n && inputs[k] == 0; ++k) {
        size_t const before = d->n_entries;
        if (take(d, i, block_arc(block, k), inside_word) && d->n_entries == before) improved = 1;
      }
    }
    if (!improved) return;
  }
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
    blank = block_blank(m->blocks + d->entries[i].block);
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
  d->renumbered = 0;
  next_layer(d);
  d->dead = d->model->start < 0;
  if (d->dead) return;
  entry start = {d->model->start_block, 0, 0.0f, 0, -1};
  if (append(d, start)) close_layer(d, 0);
}

int t2s_decoder_feed(t2s_decoder* d, const char* bytes, size_t length) {
  bytes = folded_text(d, bytes, length);
  if (!bytes) return 0;
  return t2s_feed_folded(d, bytes, length);
}

int t2s_feed_folded(t2s_decoder* d, const char* bytes, size_t length) {
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

/* The path's outputs, in order, into d->outputs. */
static int read_back(t2s_decoder* d, int64_t best) {
  d->outputs.n = 0;
  for (int64_t i = best; d->entries[i].from >= 0; i = d->entries[i].from)
    if (d->entries[i].output && !list_push(&d->outputs, d->entries[i].output)) return 0;
  uint32_t* outs = d->outputs.items;
  size_t const n = d->outputs.n;
  for (size_t i = 0; i < n / 2; ++i) {
    uint32_t t = outs[i];
    outs[i] = outs[n - 1 - i];
    outs[n - 1 - i] = t;
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
  if (outputs) *outputs = d->outputs.items;
  if (n_outputs) *n_outputs = d->outputs.n;
  return 1;
}
