#include "t2s_runtime.h"

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* A state of at most this many arcs keeps their input bytes in its own record, so reading a
   byte touches the state record and then the one arc it takes. */
#define INLINE_INPUTS 10

typedef struct {
  uint32_t first_arc, end_arc;
  uint32_t byte_table; /* 1 + the number of its table of arcs by byte, or 0 for none */
  uint8_t final;
  uint8_t epsilon; /* it has epsilon-input arcs (sorted first) */
  uint8_t inputs[INLINE_INPUTS];
} state_record;

/* States with more arcs than this get a table of where each byte's arcs begin (257 entries), so
   that a byte is found in one step instead of a search; smaller ones are scanned. */
#define SCANNED_ARCS 16

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
  uint8_t* arc_input;       /* the arcs' input bytes alone: a state's are one cache line */
  uint32_t* byte_tables;    /* 257 entries a table: the first arc of each byte, then the end */
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

/* A state on a cycle of epsilon arcs that holds an arc of negative weight (such a cycle would
   lower a path's cost without end), -1 when there is none, -2 when memory ran out. Tarjan's
   strongly connected components over the epsilon arcs, iteratively; the arcs are sorted, so a
   state's epsilon arcs are the first of its range. */
static int64_t negative_epsilon_cycle(const t2s_model* m) {
  uint32_t n = m->num_states;
  size_t bytes = (n ? (size_t)n : 1) * sizeof(uint32_t);
  uint32_t* index = (uint32_t*)calloc(1, bytes); /* 0: not visited */
  uint32_t* low = (uint32_t*)malloc(bytes);
  uint32_t* component = (uint32_t*)malloc(bytes);
  uint32_t* stack = (uint32_t*)malloc(bytes);
  uint32_t* calls = (uint32_t*)malloc(bytes); /* the depth-first path */
  uint32_t* next_arc = (uint32_t*)malloc(bytes);
  int64_t result = -1;
  if (!index || !low || !component || !stack || !calls || !next_arc) {
    result = -2;
    goto done;
  }
  uint32_t counter = 0, n_stack = 0, n_calls = 0;
  for (uint32_t root = 0; root < n; ++root) {
    if (index[root]) continue;
    calls[n_calls++] = root;
    index[root] = low[root] = ++counter;
    component[root] = UINT32_MAX;
    stack[n_stack++] = root;
    next_arc[root] = m->states[root].first_arc;
    while (n_calls) {
      uint32_t p = calls[n_calls - 1];
      uint32_t a = next_arc[p];
      if (a < m->states[p].end_arc && m->arcs[a].input == 0) {
        next_arc[p] = a + 1;
        uint32_t q = (uint32_t)m->arcs[a].next;
        if (!index[q]) {
          index[q] = low[q] = ++counter;
          component[q] = UINT32_MAX;
          stack[n_stack++] = q;
          next_arc[q] = m->states[q].first_arc;
          calls[n_calls++] = q;
        } else if (component[q] == UINT32_MAX && index[q] < low[p]) {
          low[p] = index[q];
        }
        continue;
      }
      --n_calls;
      if (n_calls && low[p] < low[calls[n_calls - 1]]) low[calls[n_calls - 1]] = low[p];
      if (low[p] == index[p]) {
        uint32_t q;
        do {
          q = stack[--n_stack];
          component[q] = p;
        } while (q != p);
      }
    }
  }
  /* A negative epsilon arc inside one component lies on a cycle. */
  for (uint32_t p = 0; p < n && result == -1; ++p)
    for (uint32_t a = m->states[p].first_arc; a < m->states[p].end_arc && m->arcs[a].input == 0;
         ++a)
      if (m->arcs[a].weight < 0 && component[m->arcs[a].next] == component[p]) result = p;
done:
  free(index);
  free(low);
  free(component);
  free(stack);
  free(calls);
  free(next_arc);
  return result;
}

void t2s_model_free(t2s_model* model) {
  if (!model) return;
  free(model->states);
  free(model->arcs);
  free(model->pool);
  free(model->string_offsets);
  free(model->arc_input);
  free(model->byte_tables);
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
#define NEED_MEMORY(pointer)                         \
  if (!(pointer)) {                                  \
    fail(error, error_size, "out of memory loading a model"); \
    t2s_model_free(model);                           \
    return NULL;                                     \
  }
  t2s_model* model = (t2s_model*)calloc(1, sizeof(t2s_model));
  if (!model) return NULL;
  NEED(8, "the header");
  model->start = (int32_t)u32_at(bytes);
  model->num_states = u32_at(bytes + 4);
  at = 8;
  NEED((uint64_t)model->num_states * 12, "the state records");
  model->states = (state_record*)calloc(model->num_states ? model->num_states : 1, sizeof(state_record));
  NEED_MEMORY(model->states);
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
  NEED_MEMORY(model->arcs);
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
  NEED_MEMORY(model->pool);
  if (model->pool_size) memcpy(model->pool, bytes + at, model->pool_size);
  at += model->pool_size;
#undef NEED
#undef NEED_MEMORY
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
    else if (a.weight != a.weight)
      problem = "arc with a weight that is not a number", where = i;
  }
  /* Every string takes at least its zero byte: more strings than bytes is a lie. */
  if (!problem && model->num_strings > model->pool_size)
    problem = "more strings than bytes in the string pool", where = model->num_strings;
  if (!problem) {
    /* Exactly num_strings zero-terminated strings fill the pool. */
    model->string_offsets =
        (uint32_t*)malloc((model->num_strings ? (size_t)model->num_strings : 1) * sizeof(uint32_t));
    uint32_t offset = 0, n = 0;
    while (model->string_offsets && offset < model->pool_size && n < model->num_strings) {
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
  model->arc_input = (uint8_t*)malloc(model->num_arcs ? model->num_arcs : 1);
  if (!model->arc_input) {
    fail(error, error_size, "out of memory loading a model");
    t2s_model_free(model);
    return NULL;
  }
  for (uint32_t i = 0; i < model->num_arcs; ++i) model->arc_input[i] = model->arcs[i].input;
  for (uint32_t i = 0; i < model->num_states; ++i) {
    state_record* s = &model->states[i];
    s->epsilon = s->first_arc < s->end_arc && model->arc_input[s->first_arc] == 0;
    if (s->epsilon) model->has_epsilon = 1;
    if (s->end_arc - s->first_arc <= INLINE_INPUTS)
      memcpy(s->inputs, model->arc_input + s->first_arc, s->end_arc - s->first_arc);
  }
  /* Byte tables, while they take no more than the arcs themselves (else states are searched). */
  size_t n_tables = 0;
  for (uint32_t i = 0; i < model->num_states; ++i)
    n_tables += model->states[i].end_arc - model->states[i].first_arc > SCANNED_ARCS;
  if (n_tables && n_tables * 257 * sizeof(uint32_t) <= (size_t)model->num_arcs * sizeof(arc_record)) {
    model->byte_tables = (uint32_t*)malloc(n_tables * 257 * sizeof(uint32_t));
    if (!model->byte_tables) {
      fail(error, error_size, "out of memory loading a model");
      t2s_model_free(model);
      return NULL;
    }
    uint32_t k = 0;
    for (uint32_t i = 0; i < model->num_states; ++i) {
      state_record* s = &model->states[i];
      if (s->end_arc - s->first_arc <= SCANNED_ARCS) continue;
      uint32_t* table = model->byte_tables + (size_t)k * 257;
      uint32_t a = s->first_arc;
      for (uint32_t b = 0; b < 257; ++b) {
        while (a < s->end_arc && model->arc_input[a] < b) ++a;
        table[b] = a;
      }
      s->byte_table = ++k;
    }
  }
  if (model->has_epsilon) {
    int64_t state = negative_epsilon_cycle(model);
    if (state != -1) {
      if (state == -2) fail(error, error_size, "out of memory checking the epsilon arcs");
      else
        fail(error, error_size,
             "model is inconsistent: epsilon cycle of negative weight through state %lld",
             (long long)state);
      t2s_model_free(model);
      return NULL;
    }
  }
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

int32_t t2s_model_start(const t2s_model* m) { return m->start; }

int t2s_model_state(const t2s_model* m, uint32_t i, uint32_t* first_arc, uint32_t* end_arc,
                    int* final) {
  if (i >= m->num_states) return 0;
  *first_arc = m->states[i].first_arc;
  *end_arc = m->states[i].end_arc;
  *final = m->states[i].final;
  return 1;
}

int t2s_model_arc(const t2s_model* m, uint32_t i, uint8_t* input, uint32_t* output,
                  int32_t* next, float* weight) {
  if (i >= m->num_arcs) return 0;
  *input = m->arcs[i].input;
  *output = m->arcs[i].output;
  *next = m->arcs[i].next;
  *weight = m->arcs[i].weight;
  return 1;
}

/* ---- decoding ----------------------------------------------------------------------------- */

/* The search keeps one layer of entries per input position: each entry is a state reached with
   its best cost and the entry and arc it came from, so the best path can be read back. A cost is
   the number of outputs emitted inside a word, then the weight. */
typedef struct {
  uint32_t state;
  uint32_t inside; /* outputs emitted between two bytes of one word */
  float weight;
  int64_t from; /* entry index, -1 at the start */
  uint32_t arc; /* the arc taken from there, or NO_ARC where a separator was skipped */
} entry;

#define NO_ARC UINT32_MAX

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
  uint32_t* outputs;
  size_t n_outputs, outputs_capacity;
};

static int is_blank(unsigned char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

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

/* Adds or improves the entry for state in the current layer; returns 1 when it changed. */
/* Layers of at most this many entries are searched directly, not through the per-state stamps
   (which cost a cache miss per step in a large model). */
#define SMALL_LAYER 8

static int improve(entry* e, uint32_t inside, float weight, int64_t from, uint32_t arc) {
  if (inside > e->inside || (inside == e->inside && !(weight < e->weight))) return 0;
  e->inside = inside;
  e->weight = weight;
  e->from = from;
  e->arc = arc;
  return 1;
}

/* Adds or improves the entry for state in the current layer; returns 1 when it changed. */
static int relax(t2s_decoder* d, uint32_t state, uint32_t inside, float weight, int64_t from,
                 uint32_t arc) {
  size_t const count = d->n_entries - d->layer_begin;
  if (count <= SMALL_LAYER) {
    for (size_t i = d->layer_begin; i < d->n_entries; ++i)
      if (d->entries[i].state == state) return improve(&d->entries[i], inside, weight, from, arc);
  } else {
    uint64_t mark = d->stamp[state];
    if ((uint32_t)(mark >> 32) == d->layer)
      return improve(&d->entries[d->layer_begin + (mark & 0xffffffffu)], inside, weight, from,
                     arc);
  }
  if (d->n_entries == d->capacity) {
    size_t capacity = d->capacity ? 2 * d->capacity : 256;
    entry* bigger = (entry*)realloc(d->entries, capacity * sizeof(entry));
    if (!bigger) return 0;
    d->entries = bigger;
    d->capacity = capacity;
  }
  entry e = {state, inside, weight, from, arc};
  d->entries[d->n_entries++] = e;
  /* A layer that outgrows direct search stamps every entry it has. */
  if (count == SMALL_LAYER) {
    for (size_t i = d->layer_begin; i < d->n_entries; ++i)
      d->stamp[d->entries[i].state] = (uint64_t)d->layer << 32 | (uint64_t)(i - d->layer_begin);
  } else if (count > SMALL_LAYER) {
    d->stamp[state] = (uint64_t)d->layer << 32 | (uint64_t)(count);
  }
  return 1;
}

/* Follows epsilon-input arcs within the current layer until no cost improves. The loader refuses
   epsilon cycles that could lower a cost, so this ends; the sweep bound is a second guard. */
static void close_layer(t2s_decoder* d, int inside_word) {
  const t2s_model* m = d->model;
  if (!m->has_epsilon) return;
  for (uint32_t sweep = 0; sweep <= m->num_states; ++sweep) {
    int changed = 0;
    for (size_t i = d->layer_begin; i < d->n_entries; ++i) {
      state_record s = m->states[d->entries[i].state];
      if (!s.epsilon) continue;
      for (uint32_t a = s.first_arc; a < s.end_arc && m->arc_input[a] == 0; ++a)
        changed |= relax(d, (uint32_t)m->arcs[a].next,
                         d->entries[i].inside + (inside_word && m->arcs[a].output != 0),
                         d->entries[i].weight + m->arcs[a].weight, (int64_t)i, a);
    }
    if (!changed) return;
  }
}

/* The arcs of state s that read c: [*first, *end). */
static void arcs_reading(const t2s_model* m, const state_record* s, uint8_t c, uint32_t* first,
                         uint32_t* end) {
  uint32_t const n = s->end_arc - s->first_arc;
  if (n <= INLINE_INPUTS) {
    uint32_t k = 0;
    while (k < n && s->inputs[k] < c) ++k;
    *first = s->first_arc + k;
    while (k < n && s->inputs[k] == c) ++k;
    *end = s->first_arc + k;
    return;
  }
  if (s->byte_table) {
    const uint32_t* table = m->byte_tables + (size_t)(s->byte_table - 1) * 257;
    *first = table[c];
    *end = table[c + 1];
    return;
  }
  uint32_t a = s->first_arc;
  while (a < s->end_arc && m->arc_input[a] < c) ++a;
  *first = a;
  while (a < s->end_arc && m->arc_input[a] == c) ++a;
  *end = a;
}

/* A new layer from the arcs of the current one that read c. inside_word: the byte after c is
   another byte of c's word, so an output emitted on c is emitted inside a word. */
static void consume(t2s_decoder* d, uint8_t c, int inside_word) {
  const t2s_model* m = d->model;
  size_t previous_begin = d->layer_begin, previous_end = d->n_entries;
  d->layer_begin = d->n_entries;
  next_layer(d);
  for (size_t i = previous_begin; i < previous_end; ++i) {
    uint32_t a, end;
    arcs_reading(m, &m->states[d->entries[i].state], c, &a, &end);
    for (; a < end; ++a)
      relax(d, (uint32_t)m->arcs[a].next,
            d->entries[i].inside + (inside_word && m->arcs[a].output != 0),
            d->entries[i].weight + m->arcs[a].weight, (int64_t)i, a);
  }
  if (d->n_entries == d->layer_begin) d->dead = 1;
  else close_layer(d, inside_word);
}

/* Between two words the model reads nothing or one blank byte (a space or a tab). */
static void separate(t2s_decoder* d) {
  const t2s_model* m = d->model;
  size_t previous_begin = d->layer_begin, previous_end = d->n_entries;
  d->layer_begin = d->n_entries;
  next_layer(d);
  for (size_t i = previous_begin; i < previous_end; ++i)
    relax(d, d->entries[i].state, d->entries[i].inside, d->entries[i].weight, (int64_t)i, NO_ARC);
  static const uint8_t blanks[2] = {'\t', ' '};
  for (size_t i = previous_begin; i < previous_end; ++i) {
    state_record s = m->states[d->entries[i].state];
    for (int b = 0; b < 2; ++b) {
      uint32_t a, end;
      arcs_reading(m, &s, blanks[b], &a, &end);
      for (; a < end; ++a)
        relax(d, (uint32_t)m->arcs[a].next, d->entries[i].inside,
              d->entries[i].weight + m->arcs[a].weight, (int64_t)i, a);
    }
  }
  close_layer(d, 0);
}

/* Whether some entry of the current layer has an arc reading c. */
static int can_read(const t2s_decoder* d, uint8_t c) {
  const t2s_model* m = d->model;
  for (size_t i = d->layer_begin; i < d->n_entries; ++i) {
    uint32_t a, end;
    arcs_reading(m, &m->states[d->entries[i].state], c, &a, &end);
    if (a < end) return 1;
  }
  return 0;
}

void t2s_decoder_reset(t2s_decoder* d) {
  d->n_entries = 0;
  d->layer_begin = 0;
  d->held = -1;
  d->separator = 0;
  next_layer(d);
  d->dead = d->model->start < 0;
  if (d->dead) return;
  relax(d, (uint32_t)d->model->start, 0, 0.0f, -1, 0);
  close_layer(d, 0);
}

int t2s_decoder_feed(t2s_decoder* d, const char* bytes, size_t length) {
  for (size_t k = 0; k < length && !d->dead; ++k) {
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
    if (d->held >= 0) consume(d, (uint8_t)d->held, 1);
    else if (d->separator) separate(d);
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
    if (!d->model->states[e->state].final) continue;
    if (best < 0 || e->inside < d->entries[best].inside ||
        (e->inside == d->entries[best].inside && e->weight < d->entries[best].weight))
      best = (int64_t)i;
  }
  return best;
}

/* The path's outputs, in order, into d->outputs. */
static int read_back(t2s_decoder* d, int64_t best) {
  d->n_outputs = 0;
  for (int64_t i = best; d->entries[i].from >= 0; i = d->entries[i].from) {
    if (d->entries[i].arc == NO_ARC) continue;
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

int t2s_decoder_best(t2s_decoder* d, const uint32_t** outputs, size_t* n_outputs,
                     float* weight) {
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
