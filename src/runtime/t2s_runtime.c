#include "t2s_runtime.h"

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

typedef struct {
  uint32_t first_arc, end_arc;
  uint8_t final;
} state_record;

typedef struct {
  uint8_t input;
  uint32_t output;
  int32_t next;
  float weight;
} arc_record;

struct t2s_model {
  int32_t start;
  uint32_t num_states, num_arcs, num_strings, pool_size;
  state_record* states;
  arc_record* arcs;
  char* pool;
  uint32_t* string_offsets; /* where string i starts in the pool */
  int has_epsilon;          /* any arc with input 0 */
};

static void fail(char* error, size_t size, const char* format, ...) {
  if (!error || !size) return;
  va_list args;
  va_start(args, format);
  vsnprintf(error, size, format, args);
  va_end(args);
}

/* Ties keep no particular order; the search takes every matching arc. */
static int by_input(const void* a, const void* b) {
  return (int)((const arc_record*)a)->input - (int)((const arc_record*)b)->input;
}

static uint32_t u32_at(const unsigned char* p) {
  return (uint32_t)p[0] | (uint32_t)p[1] << 8 | (uint32_t)p[2] << 16 | (uint32_t)p[3] << 24;
}

void t2s_model_free(t2s_model* model) {
  if (!model) return;
  free(model->states);
  free(model->arcs);
  free(model->pool);
  free(model->string_offsets);
  free(model);
}

t2s_model* t2s_model_from_memory(const void* data, size_t size, char* error, size_t error_size) {
  const unsigned char* bytes = (const unsigned char*)data;
  uint64_t at = 0;
#define NEED(n, what)                                                                      \
  if ((uint64_t)size < at + (uint64_t)(n)) {                                              \
    fail(error, error_size, "model is truncated: %s needs %llu bytes at offset %llu of %llu", \
         what, (unsigned long long)(n), (unsigned long long)at, (unsigned long long)size);  \
    t2s_model_free(model);                                                                 \
    return NULL;                                                                           \
  }
  t2s_model* model = (t2s_model*)calloc(1, sizeof(t2s_model));
  if (!model) return NULL;
  NEED(8, "the header");
  model->start = (int32_t)u32_at(bytes);
  model->num_states = u32_at(bytes + 4);
  at = 8;
  NEED((uint64_t)model->num_states * 12, "the state records");
  model->states = (state_record*)calloc(model->num_states ? model->num_states : 1, sizeof(state_record));
  for (uint32_t i = 0; i < model->num_states; ++i, at += 12) {
    model->states[i].first_arc = u32_at(bytes + at);
    model->states[i].end_arc = u32_at(bytes + at + 4);
    model->states[i].final = bytes[at + 8];
  }
  NEED(4, "the arc count");
  model->num_arcs = u32_at(bytes + at);
  at += 4;
  NEED((uint64_t)model->num_arcs * 16, "the arc records");
  model->arcs = (arc_record*)calloc(model->num_arcs ? model->num_arcs : 1, sizeof(arc_record));
  for (uint32_t i = 0; i < model->num_arcs; ++i, at += 16) {
    model->arcs[i].input = bytes[at];
    model->arcs[i].output = u32_at(bytes + at + 4);
    model->arcs[i].next = (int32_t)u32_at(bytes + at + 8);
    uint32_t bits = u32_at(bytes + at + 12);
    memcpy(&model->arcs[i].weight, &bits, 4);
  }
  NEED(8, "the string counts");
  model->num_strings = u32_at(bytes + at);
  model->pool_size = u32_at(bytes + at + 4);
  at += 8;
  NEED(model->pool_size, "the string pool");
  model->pool = (char*)malloc(model->pool_size ? model->pool_size : 1);
  if (model->pool_size) memcpy(model->pool, bytes + at, model->pool_size);
  at += model->pool_size;
#undef NEED
  if (at != size) {
    fail(error, error_size, "model has %llu bytes after its string pool",
         (unsigned long long)(size - at));
    t2s_model_free(model);
    return NULL;
  }

  /* Everything that the decoder will follow must point inside the model. */
  const char* problem = NULL;
  unsigned long long where = 0;
  if (model->start < -1 || (model->start >= 0 && (uint32_t)model->start >= model->num_states))
    problem = "start state out of range";
  for (uint32_t i = 0; !problem && i < model->num_states; ++i) {
    state_record s = model->states[i];
    if (s.first_arc > s.end_arc || s.end_arc > model->num_arcs)
      problem = "state with an arc range outside the arcs", where = i;
    else if (s.final > 1)
      problem = "state with a final flag other than 0 or 1", where = i;
  }
  for (uint32_t i = 0; !problem && i < model->num_arcs; ++i) {
    arc_record a = model->arcs[i];
    if (a.next < 0 || (uint32_t)a.next >= model->num_states)
      problem = "arc to a state out of range", where = i;
    else if (a.output >= model->num_strings)
      problem = "arc with an output string out of range", where = i;
  }
  if (!problem) {
    /* Exactly num_strings zero-terminated strings fill the pool. */
    model->string_offsets = (uint32_t*)malloc((model->num_strings ? model->num_strings : 1) * 4);
    uint32_t offset = 0, n = 0;
    while (offset < model->pool_size && n < model->num_strings) {
      model->string_offsets[n++] = offset;
      const char* end = memchr(model->pool + offset, 0, model->pool_size - offset);
      if (!end) break;
      offset = (uint32_t)(end - model->pool) + 1;
    }
    if (n != model->num_strings || offset != model->pool_size ||
        (model->pool_size && model->pool[model->pool_size - 1] != 0))
      problem = "string pool is not exactly the counted zero-terminated strings";
  }
  if (problem) {
    fail(error, error_size, "model is inconsistent: %s (%llu)", problem, where);
    t2s_model_free(model);
    return NULL;
  }
  /* Each state's arcs sorted by input byte: a byte is found by binary search and the epsilon
     arcs come first. Arcs are reached only through their state's range, so this is safe. */
  for (uint32_t i = 0; i < model->num_states; ++i) {
    state_record s = model->states[i];
    qsort(model->arcs + s.first_arc, s.end_arc - s.first_arc, sizeof(arc_record), by_input);
  }
  for (uint32_t i = 0; i < model->num_arcs; ++i)
    if (model->arcs[i].input == 0) model->has_epsilon = 1;
  return model;
}

t2s_model* t2s_model_load(const char* path, char* error, size_t error_size) {
  FILE* f = fopen(path, "rb");
  if (!f) {
    fail(error, error_size, "cannot open %s", path);
    return NULL;
  }
  size_t capacity = 1 << 16, size = 0;
  unsigned char* data = (unsigned char*)malloc(capacity);
  size_t got;
  while (data && (got = fread(data + size, 1, capacity - size, f)) > 0) {
    size += got;
    if (size == capacity) {
      unsigned char* bigger = (unsigned char*)realloc(data, capacity *= 2);
      if (!bigger) free(data);
      data = bigger;
    }
  }
  fclose(f);
  if (!data) {
    fail(error, error_size, "out of memory reading %s", path);
    return NULL;
  }
  t2s_model* model = t2s_model_from_memory(data, size, error, error_size);
  free(data);
  return model;
}

uint32_t t2s_model_num_states(const t2s_model* m) { return m->num_states; }
uint32_t t2s_model_num_arcs(const t2s_model* m) { return m->num_arcs; }
uint32_t t2s_model_num_strings(const t2s_model* m) { return m->num_strings; }
const char* t2s_model_string(const t2s_model* m, uint32_t i) {
  return i < m->num_strings ? m->pool + m->string_offsets[i] : NULL;
}

/* ---- decoding ----------------------------------------------------------------------------- */

/* The search keeps one layer of entries per input position: each entry is a state reached with
   its best weight and the entry and arc it came from, so the best path can be read back. */
typedef struct {
  uint32_t state;
  float weight;
  int64_t from; /* entry index, -1 at the start */
  uint32_t arc; /* the arc taken from there */
} entry;

struct t2s_decoder {
  const t2s_model* model;
  entry* entries;
  size_t n_entries, capacity;
  size_t layer_begin; /* first entry of the current (last) layer */
  uint64_t* stamp;    /* per state: layer stamp << 32 | entry offset in the layer */
  uint64_t layer;     /* stamp of the current layer */
  int dead;
  uint32_t* outputs;
  size_t n_outputs, outputs_capacity;
};

t2s_decoder* t2s_decoder_new(const t2s_model* model) {
  t2s_decoder* d = (t2s_decoder*)calloc(1, sizeof(t2s_decoder));
  if (!d) return NULL;
  d->model = model;
  d->stamp = (uint64_t*)calloc(model->num_states ? model->num_states : 1, sizeof(uint64_t));
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

/* Adds or improves the entry for state in the current layer; returns 1 when it changed. */
static int relax(t2s_decoder* d, uint32_t state, float weight, int64_t from, uint32_t arc) {
  uint64_t mark = d->stamp[state];
  if (mark >> 32 == d->layer) {
    entry* e = &d->entries[d->layer_begin + (mark & 0xffffffffu)];
    if (weight >= e->weight) return 0;
    e->weight = weight;
    e->from = from;
    e->arc = arc;
    return 1;
  }
  if (d->n_entries == d->capacity) {
    size_t capacity = d->capacity ? 2 * d->capacity : 256;
    entry* bigger = (entry*)realloc(d->entries, capacity * sizeof(entry));
    if (!bigger) return 0;
    d->entries = bigger;
    d->capacity = capacity;
  }
  d->stamp[state] = d->layer << 32 | (uint64_t)(d->n_entries - d->layer_begin);
  entry e = {state, weight, from, arc};
  d->entries[d->n_entries++] = e;
  return 1;
}

/* Follows epsilon-input arcs within the current layer until no weight improves (a bounded
   number of sweeps, so even a negative epsilon cycle ends). */
static void close_layer(t2s_decoder* d) {
  const t2s_model* m = d->model;
  if (!m->has_epsilon) return;
  for (uint32_t sweep = 0; sweep <= m->num_states; ++sweep) {
    int changed = 0;
    for (size_t i = d->layer_begin; i < d->n_entries; ++i) {
      state_record s = m->states[d->entries[i].state];
      for (uint32_t a = s.first_arc; a < s.end_arc && m->arcs[a].input == 0; ++a)
        changed |= relax(d, (uint32_t)m->arcs[a].next, d->entries[i].weight + m->arcs[a].weight,
                         (int64_t)i, a);
    }
    if (!changed) return;
  }
}

/* The first arc of [first, end) whose input is not below c. */
static uint32_t first_with_input(const arc_record* arcs, uint32_t first, uint32_t end, uint8_t c) {
  while (first < end) {
    uint32_t middle = first + (end - first) / 2;
    if (arcs[middle].input < c) first = middle + 1;
    else end = middle;
  }
  return first;
}

void t2s_decoder_reset(t2s_decoder* d) {
  d->n_entries = 0;
  d->layer_begin = 0;
  d->layer += 1;
  d->dead = d->model->start < 0;
  if (d->dead) return;
  relax(d, (uint32_t)d->model->start, 0.0f, -1, 0);
  close_layer(d);
}

int t2s_decoder_feed(t2s_decoder* d, const char* bytes, size_t length) {
  const t2s_model* m = d->model;
  for (size_t k = 0; k < length && !d->dead; ++k) {
    uint8_t c = (uint8_t)bytes[k];
    size_t previous_begin = d->layer_begin, previous_end = d->n_entries;
    d->layer_begin = d->n_entries;
    d->layer += 1;
    for (size_t i = previous_begin; i < previous_end; ++i) {
      state_record s = m->states[d->entries[i].state];
      if (c == 0) break; /* a zero byte is epsilon, never input */
      for (uint32_t a = first_with_input(m->arcs, s.first_arc, s.end_arc, c);
           a < s.end_arc && m->arcs[a].input == c; ++a)
        relax(d, (uint32_t)m->arcs[a].next, d->entries[i].weight + m->arcs[a].weight,
              (int64_t)i, a);
    }
    if (d->n_entries == d->layer_begin) d->dead = 1;
    else close_layer(d);
  }
  return !d->dead;
}

int t2s_decoder_best(t2s_decoder* d, const uint32_t** outputs, size_t* n_outputs,
                     float* weight) {
  if (d->dead) return 0;
  int64_t best = -1;
  for (size_t i = d->layer_begin; i < d->n_entries; ++i)
    if (d->model->states[d->entries[i].state].final &&
        (best < 0 || d->entries[i].weight < d->entries[best].weight))
      best = (int64_t)i;
  if (best < 0) return 0;
  /* Read the path back, collecting outputs from the end. */
  d->n_outputs = 0;
  for (int64_t i = best; d->entries[i].from >= 0; i = d->entries[i].from) {
    uint32_t out = d->model->arcs[d->entries[i].arc].output;
    if (!out) continue;
    if (d->n_outputs == d->outputs_capacity) {
      size_t capacity = d->outputs_capacity ? 2 * d->outputs_capacity : 16;
      uint32_t* bigger = (uint32_t*)realloc(d->outputs, capacity * sizeof(uint32_t));
      if (!bigger) return 0;
      d->outputs = bigger;
      d->outputs_capacity = capacity;
    }
    d->outputs[d->n_outputs++] = out;
  }
  for (size_t i = 0; i < d->n_outputs / 2; ++i) {
    uint32_t t = d->outputs[i];
    d->outputs[i] = d->outputs[d->n_outputs - 1 - i];
    d->outputs[d->n_outputs - 1 - i] = t;
  }
  if (outputs) *outputs = d->outputs;
  if (n_outputs) *n_outputs = d->n_outputs;
  if (weight) *weight = d->entries[best].weight;
  return 1;
}
