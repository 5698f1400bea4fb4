/* Loading T2S model files: every record is checked before the decoder may follow it, then the
   states are copied into the blocks the decoder reads. */
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#if defined(__unix__) || defined(__APPLE__)
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#define T2S_MAP_FILES 1
#endif

#include "t2s_model_layout.h"
#include "t2s_runtime.h"

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

/* States with more arcs than this get a byte table (while the tables take no more memory than
   the arc records): a byte is then found in one step instead of a scan of the inputs. */
#define SCANNED_ARCS 16

/* Whether a state gets a block of one arc. */
static int one_arc_block(const t2s_model* m, state_record s) {
  return s.end_arc - s.first_arc == 1 && m->arcs[s.first_arc].input != 0;
}

/* Copies the states into the decoder's blocks (t2s_model_layout.h); the reason on failure. */
static const char* build_blocks(t2s_model* m) {
  size_t n_tables = 0;
  for (uint32_t p = 0; p < m->num_states; ++p)
    n_tables += m->states[p].end_arc - m->states[p].first_arc > SCANNED_ARCS;
  int tables = n_tables * BYTE_TABLE_SIZE * sizeof(uint32_t) <= (size_t)m->num_arcs * 16;
  uint32_t* offset = (uint32_t*)malloc((m->num_states ? (size_t)m->num_states : 1) * 4);
  if (!offset) return "out of memory loading a model";
  /* Blocks of one arc first, then the others, each group in state order. */
  uint64_t words = 0;
  int too_large = 0;
  for (int one = 1; one >= 0; --one) {
    if (!one) m->one_end = (uint32_t)words;
    for (uint32_t p = 0; p < m->num_states && !too_large; ++p) {
      if (one_arc_block(m, m->states[p]) != one) continue;
      uint64_t const n = m->states[p].end_arc - m->states[p].first_arc;
      offset[p] = (uint32_t)words;
      uint64_t const size = BLOCK_HEADER + (tables && n > SCANNED_ARCS) + (n + 3) / 4 + 3 * n;
      words += one ? ONE_ARC_BLOCK : (size + 3) / 4 * 4;
      too_large = n > BLOCK_MAX_ARCS || words > UINT32_MAX;
    }
  }
  if (too_large) {
    free(offset);
    return "model is too large to decode";
  }
  m->blocks = (uint32_t*)calloc(words ? (size_t)words : 1, 4);
  if (tables && n_tables)
    m->byte_tables = (uint32_t*)malloc(n_tables * BYTE_TABLE_SIZE * sizeof(uint32_t));
  if (!m->blocks || (tables && n_tables && !m->byte_tables)) {
    free(offset);
    return "out of memory loading a model";
  }
  uint32_t table = 0, n_one = m->one_end / ONE_ARC_BLOCK, number = n_one;
  for (uint32_t p = 0; p < m->num_states; ++p) {
    state_record s = m->states[p];
    uint32_t n = s.end_arc - s.first_arc;
    uint32_t* block = m->blocks + offset[p];
    int blank = 0;
    for (uint32_t k = 0; k < n; ++k) {
      uint8_t const input = m->arcs[s.first_arc + k].input;
      blank |= input == ' ' || input == '\t';
    }
    uint32_t const flags = (s.final ? BLOCK_FINAL : 0) | (blank ? BLOCK_BLANK : 0) |
                           (n && m->arcs[s.first_arc].input == 0 ? BLOCK_EPSILON : 0);
    if (one_arc_block(m, s)) {
      block[0] = (uint32_t)m->arcs[s.first_arc].input << BLOCK_FLAGS | flags | BLOCK_ONE;
    } else {
      int const with_table = tables && n > SCANNED_ARCS;
      block[0] = n << BLOCK_FLAGS | flags | (with_table ? BLOCK_TABLE : 0);
      for (uint32_t k = 0; k < n; ++k) {
        uint8_t const input = m->arcs[s.first_arc + k].input;
        if (input) block[1] |= 1u << (input & 31);
      }
      block[2] = number++;
      if (with_table) {
        block[BLOCK_HEADER] = table;
        uint32_t* entries = m->byte_tables + (size_t)table++ * BYTE_TABLE_SIZE;
        uint32_t k = 0;
        for (uint32_t b = 0; b < BYTE_TABLE_SIZE; ++b) {
          while (k < n && m->arcs[s.first_arc + k].input < b) ++k;
          entries[b] = k;
        }
      }
      uint8_t* inputs = (uint8_t*)block_inputs(block);
      for (uint32_t k = 0; k < n; ++k) inputs[k] = m->arcs[s.first_arc + k].input;
    }
    for (uint32_t k = 0; k < n; ++k) {
      const arc_record* a = &m->arcs[s.first_arc + k];
      uint32_t* arc = (uint32_t*)block_arc(block, k);
      arc[0] = offset[a->next];
      memcpy(&arc[1], &a->weight, 4);
      arc[2] = a->output;
    }
  }
  m->start_block = m->start >= 0 ? offset[m->start] : 0;
  free(offset);
  return NULL;
}

/* The start pairs (t2s_model_layout.h); 0 when out of memory. */
static int build_start_pairs(t2s_model* m) {
  uint8_t read[256] = {0};
  for (uint32_t i = 0; i < m->num_arcs; ++i) read[m->arcs[i].input] = 1;
  uint32_t n = 1;
  for (int c = ' ' + 1; c < 256; ++c)
    if (read[c]) m->pair_class[c] = (uint8_t)n++;
  m->n_pair_classes = n;
  m->start_pairs = (start_pair*)malloc((size_t)n * n * sizeof(start_pair));
  if (!m->start_pairs) return 0;
  for (size_t i = 0; i < (size_t)n * n; ++i) m->start_pairs[i].block = NO_PAIR;
  if (m->start < 0) return 1;
  for (int c1 = ' ' + 1; c1 < 256; ++c1) {
    const uint32_t* first =
        read[c1] ? clean_arc_inside_word(m, m->blocks + m->start_block, (uint8_t)c1) : NULL;
    for (int c2 = ' ' + 1; first && c2 < 256; ++c2) {
      const uint32_t* second =
          read[c2] ? clean_arc_inside_word(m, m->blocks + first[0], (uint8_t)c2) : NULL;
      if (!second) continue;
      start_pair* pair = &m->start_pairs[m->pair_class[c1] * n + m->pair_class[c2]];
      pair->block = second[0];
      pair->weight = (0.0f + arc_weight(first)) + arc_weight(second); /* as the walk adds them */
    }
  }
  return 1;
}

void t2s_model_free(t2s_model* model) {
  if (!model) return;
  free(model->states);
  free(model->arcs);
  free(model->pool);
  free(model->string_offsets);
  free(model->blocks);
  free(model->byte_tables);
  free(model->start_pairs);
  free(model);
}

t2s_model* t2s_model_from_memory(const void* data, size_t size, char* error, size_t error_size) {
  const unsigned char* bytes = (const unsigned char*)data;
  uint64_t at = 0;
#define NEED(n, what)                                                                         \
  if ((uint64_t)size < at + (uint64_t)(n)) {                                                  \
    fail(error, error_size, "model is truncated: %s needs %llu bytes at offset %llu of %llu", \
         what, (unsigned long long)(n), (unsigned long long)at, (unsigned long long)size);    \
    t2s_model_free(model);                                                                    \
    return NULL;                                                                              \
  }
#define NEED_MEMORY(pointer)                                  \
  if (!(pointer)) {                                           \
    fail(error, error_size, "out of memory loading a model"); \
    t2s_model_free(model);                                    \
    return NULL;                                              \
  }
  t2s_model* model = (t2s_model*)calloc(1, sizeof(t2s_model));
  if (!model) return NULL;
  NEED(8, "the header");
  model->start = (int32_t)u32_at(bytes);
  model->num_states = u32_at(bytes + 4);
  at = 8;
  NEED((uint64_t)model->num_states * 12, "the state records");
  model->states =
      (state_record*)calloc(model->num_states ? model->num_states : 1, sizeof(state_record));
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
  /* Each state's arcs follow the previous state's, so no arc is counted twice: overlapping
     ranges would let a small file ask for blocks of gigabytes. */
  for (uint32_t i = 0; !problem && i < model->num_states; ++i) {
    state_record s = model->states[i];
    if (s.first_arc > s.end_arc || s.end_arc > model->num_arcs)
      problem = "state with an arc range outside the arcs", where = i;
    else if (s.first_arc != (i ? model->states[i - 1].end_arc : 0))
      problem = "state whose arcs do not follow the previous state's", where = i;
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
  /* Each state's arcs sorted by input byte, epsilon arcs first. Arcs are reached only through
     their state's range, so this is safe. */
  for (uint32_t i = 0; i < model->num_states; ++i) {
    state_record s = model->states[i];
    arc_record* arcs = model->arcs + s.first_arc;
    uint32_t const n = s.end_arc - s.first_arc;
    if (n > 32) {
      qsort(arcs, n, sizeof(arc_record), by_input);
      continue;
    }
    /* Most states have a few arcs, mostly in order already: insertion sort, no allocation. */
    for (uint32_t k = 1; k < n; ++k) {
      arc_record const moved = arcs[k];
      uint32_t j = k;
      for (; j > 0 && arcs[j - 1].input > moved.input; --j) arcs[j] = arcs[j - 1];
      arcs[j] = moved;
    }
  }
  for (uint32_t i = 0; i < model->num_arcs; ++i)
    if (model->arcs[i].input == 0) model->has_epsilon = 1;
  const char* failure = build_blocks(model);
  if (!failure && !build_start_pairs(model)) failure = "out of memory loading a model";
  if (failure) {
    fail(error, error_size, "%s", failure);
    t2s_model_free(model);
    return NULL;
  }
  if (model->has_epsilon) {
    int64_t state = negative_epsilon_cycle(model);
    if (state != -1) {
      if (state == -2)
        fail(error, error_size, "out of memory checking the epsilon arcs");
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

/* The file read into memory and loaded from there. */
static t2s_model* load_by_reading(FILE* f, const char* path, char* error, size_t error_size) {
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

t2s_model* t2s_model_load(const char* path, char* error, size_t error_size) {
#ifdef T2S_MAP_FILES
  /* A regular file is loaded from a read-only mapping: no copy of it, and its pages come from
     the page cache (a quarter of the load time of a large model). Anything else is read. */
  int fd = open(path, O_RDONLY);
  if (fd < 0) {
    fail(error, error_size, "cannot open %s", path);
    return NULL;
  }
  struct stat info;
  if (fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_size > 0 &&
      (uint64_t)info.st_size <= (uint64_t)SIZE_MAX) {
    size_t const size = (size_t)info.st_size;
    void* data = mmap(NULL, size, PROT_READ, MAP_PRIVATE, fd, 0);
    if (data != MAP_FAILED) {
      close(fd);
      t2s_model* model = t2s_model_from_memory(data, size, error, error_size);
      munmap(data, size);
      return model;
    }
  }
  FILE* f = fdopen(fd, "rb");
  if (!f) close(fd);
#else
  FILE* f = fopen(path, "rb");
#endif
  if (!f) {
    fail(error, error_size, "cannot open %s", path);
    return NULL;
  }
  return load_by_reading(f, path, error, error_size);
}

uint32_t t2s_model_num_states(const t2s_model* m) { return m->num_states; }
uint32_t t2s_model_num_arcs(const t2s_model* m) { return m->num_arcs; }
uint32_t t2s_model_num_strings(const t2s_model* m) { return m->num_strings; }
const char* t2s_model_string(const t2s_model* m, uint32_t i) {
  return i < m->num_strings ? m->pool + m->string_offsets[i] : NULL;
}

size_t t2s_model_string_length(const t2s_model* m, uint32_t i) {
  if (i >= m->num_strings) return 0;
  uint32_t end = i + 1 < m->num_strings ? m->string_offsets[i + 1] : m->pool_size;
  return end - m->string_offsets[i] - 1;
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

int t2s_model_arc(const t2s_model* m, uint32_t i, uint8_t* input, uint32_t* output, int32_t* next,
                  float* weight) {
  if (i >= m->num_arcs) return 0;
  *input = m->arcs[i].input;
  *output = m->arcs[i].output;
  *next = m->arcs[i].next;
  *weight = m->arcs[i].weight;
  return 1;
}
