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

/* Where arc k (in input order) of state p lies in the model, and the state it leads to. */
static const uint32_t* state_arc(const t2s_model* m, uint32_t p, uint32_t k) {
  return block_arc(m->blocks + m->state_blocks[p], k);
}
static uint32_t arc_target(const t2s_model* m, const uint32_t* arc) {
  return m->block_states[block_number(m, arc[0])];
}

/* Whether arc k of state p reads epsilon (those come first: stop at the first that does not). */
static int epsilon_arc(const t2s_model* m, uint32_t p, uint32_t k) {
  const uint32_t* block = m->blocks + m->state_blocks[p];
  return block_epsilon(block) && k < block_arcs(block) && block_inputs(block)[k] == 0;
}

/* A state on a cycle of epsilon arcs that holds an arc of negative weight (such a cycle would
   lower a path's cost without end), -1 when there is none, -2 when memory ran out. Tarjan's
   strongly connected components over the epsilon arcs, iteratively. */
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
    next_arc[root] = 0;
    while (n_calls) {
      uint32_t p = calls[n_calls - 1];
      uint32_t k = next_arc[p];
      if (epsilon_arc(m, p, k)) {
        next_arc[p] = k + 1;
        uint32_t q = arc_target(m, state_arc(m, p, k));
        if (!index[q]) {
          index[q] = low[q] = ++counter;
          component[q] = UINT32_MAX;
          stack[n_stack++] = q;
          next_arc[q] = 0;
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
    for (uint32_t k = 0; epsilon_arc(m, p, k); ++k) {
      const uint32_t* arc = state_arc(m, p, k);
      if (arc_weight(arc) < 0 && component[arc_target(m, arc)] == component[p]) result = p;
    }
done:
  free(index);
  free(low);
  free(component);
  free(stack);
  free(calls);
  free(next_arc);
  return result;
}

/* States with more arcs than this get a byte table (while the tables take no more than 16 bytes
   an arc): a byte is then found in one step instead of a scan of the inputs. */
#define SCANNED_ARCS 16

/* Where the file's records lie, read once they have been checked. */
typedef struct {
  const unsigned char* bytes;  /* the first arc record */
  const unsigned char* finals; /* the first state record's final flag, then one every 12 bytes */
} file_records;

static arc_record arc_in_file(file_records f, uint32_t i) {
  const unsigned char* at = f.bytes + (size_t)i * 16;
  arc_record a;
  uint32_t const bits = u32_at(at + 12);
  a.input = at[0];
  a.output = u32_at(at + 4);
  a.next = (int32_t)u32_at(at + 8);
  memcpy(&a.weight, &bits, 4);
  return a;
}

/* Whether a state gets a block of one arc. */
static int one_arc_block(const t2s_model* m, file_records f, uint32_t p) {
  return m->arc_starts[p + 1] - m->arc_starts[p] == 1 && f.bytes[(size_t)m->arc_starts[p] * 16];
}

/* The state's arcs sorted by input byte, epsilon arcs first, into arcs. */
static void read_sorted_arcs(const t2s_model* m, file_records f, uint32_t p, arc_record* arcs) {
  uint32_t const first = m->arc_starts[p], n = m->arc_starts[p + 1] - first;
  for (uint32_t k = 0; k < n; ++k) arcs[k] = arc_in_file(f, first + k);
  if (m->fold_case) /* the decoder makes the text's capitals small: so are the arcs' */
    for (uint32_t k = 0; k < n; ++k)
      if (arcs[k].input >= 'A' && arcs[k].input <= 'Z') arcs[k].input += 'a' - 'A';
  if (n > 32) {
    qsort(arcs, n, sizeof(arc_record), by_input);
    return;
  }
  /* Most states have a few arcs, often in order already: insertion sort, no allocation. */
  for (uint32_t k = 1; k < n; ++k) {
    arc_record const moved = arcs[k];
    uint32_t j = k;
    for (; j > 0 && arcs[j - 1].input > moved.input; --j) arcs[j] = arcs[j - 1];
    arcs[j] = moved;
  }
}

/* Places the blocks: those of one arc first, then the others, each group in state order; fills
   state_blocks, block_states and one_end. Returns the words they take (at least one), or 0 when
   they are too many. */
static uint64_t place_blocks(t2s_model* m, file_records f, int tables) {
  uint64_t words = 0;
  uint32_t number = 0;
  for (int one = 1; one >= 0; --one) {
    if (!one) m->one_end = (uint32_t)words;
    for (uint32_t p = 0; p < m->num_states; ++p) {
      if (one_arc_block(m, f, p) != one) continue;
      uint64_t const n = m->arc_starts[p + 1] - m->arc_starts[p];
      m->state_blocks[p] = (uint32_t)words;
      m->block_states[number++] = p;
      uint64_t const size = BLOCK_HEADER + (tables && n > SCANNED_ARCS) + (n + 3) / 4 + 3 * n;
      words += one ? ONE_ARC_BLOCK : (size + 3) / 4 * 4;
      if (n > BLOCK_MAX_ARCS || words > UINT32_MAX) return 0;
    }
  }
  return words ? words : 1;
}

/* Writes the block of a number from its state's arcs (sorted); read[b] is set for each byte b
   that they read. */
static void write_block(t2s_model* m, file_records f, uint32_t number, const arc_record* arcs,
                        uint32_t n, int with_table, uint32_t* table, uint8_t read[256]) {
  uint32_t const p = m->block_states[number];
  uint32_t* block = m->blocks + m->state_blocks[p];
  int blank = 0;
  for (uint32_t k = 0; k < n; ++k) {
    blank |= arcs[k].input == ' ' || arcs[k].input == '\t';
    read[arcs[k].input] = 1;
  }
  uint32_t const flags = (f.finals[(size_t)p * 12] ? BLOCK_FINAL : 0) | (blank ? BLOCK_BLANK : 0) |
                         (n && arcs[0].input == 0 ? BLOCK_EPSILON : 0);
  if (m->state_blocks[p] < m->one_end) { /* placed as a block of one arc */
    block[0] = (uint32_t)arcs[0].input << BLOCK_FLAGS | flags | BLOCK_ONE;
  } else {
    block[0] = n << BLOCK_FLAGS | flags | (with_table ? BLOCK_TABLE : 0);
    for (uint32_t k = 0; k < n; ++k)
      if (arcs[k].input) block[1] |= 1u << (arcs[k].input & 31);
    block[2] = number;
    if (with_table) {
      block[BLOCK_HEADER] = *table;
      uint32_t* entries = m->byte_tables + (size_t)(*table)++ * BYTE_TABLE_SIZE;
      uint32_t k = 0;
      for (uint32_t b = 0; b < BYTE_TABLE_SIZE; ++b) {
        while (k < n && arcs[k].input < b) ++k;
        entries[b] = k;
      }
    }
    uint8_t* inputs = (uint8_t*)block_inputs(block);
    for (uint32_t k = 0; k < n; ++k) inputs[k] = arcs[k].input;
  }
  for (uint32_t k = 0; k < n; ++k) {
    uint32_t* arc = (uint32_t*)block_arc(block, k);
    arc[0] = m->state_blocks[arcs[k].next];
    memcpy(&arc[1], &arcs[k].weight, 4);
    arc[2] = arcs[k].output;
  }
}

/* Copies the states into the decoder's blocks (t2s_model_layout.h); the reason on failure. */
static const char* build_blocks(t2s_model* m, file_records f, uint8_t read[256]) {
  uint32_t const n_states = m->num_states;
  size_t n_tables = 0;
  uint32_t most_arcs = 0;
  for (uint32_t p = 0; p < n_states; ++p) {
    uint32_t const n = m->arc_starts[p + 1] - m->arc_starts[p];
    n_tables += n > SCANNED_ARCS;
    if (n > most_arcs) most_arcs = n;
  }
  int const tables = n_tables * BYTE_TABLE_SIZE * sizeof(uint32_t) <= (size_t)m->num_arcs * 16;
  size_t const per_state = (n_states ? (size_t)n_states : 1) * 4;
  m->state_blocks = (uint32_t*)malloc(per_state);
  m->block_states = (uint32_t*)malloc(per_state);
  arc_record* arcs = (arc_record*)malloc((most_arcs ? most_arcs : 1) * sizeof(arc_record));
  if (!m->state_blocks || !m->block_states || !arcs) {
    free(arcs);
    return "out of memory loading a model";
  }
  uint64_t const words = place_blocks(m, f, tables);
  if (!words) {
    free(arcs);
    return "model is too large to decode";
  }
  m->blocks = (uint32_t*)calloc((size_t)words, 4);
  if (tables && n_tables)
    m->byte_tables = (uint32_t*)malloc(n_tables * BYTE_TABLE_SIZE * sizeof(uint32_t));
  if (!m->blocks || (tables && n_tables && !m->byte_tables)) {
    free(arcs);
    return "out of memory loading a model";
  }
  /* In block order, so the blocks are written front to back. */
  uint32_t table = 0;
  for (uint32_t number = 0; number < n_states; ++number) {
    uint32_t const p = m->block_states[number], n = m->arc_starts[p + 1] - m->arc_starts[p];
    read_sorted_arcs(m, f, p, arcs);
    write_block(m, f, number, arcs, n, tables && n > SCANNED_ARCS, &table, read);
  }
  free(arcs);
  m->has_epsilon = read[0];
  m->start_block = m->start >= 0 ? m->state_blocks[m->start] : 0;
  return NULL;
}

/* The start pairs (t2s_model_layout.h), given the bytes that some arc reads; 0 when out of
   memory. */
static int build_start_pairs(t2s_model* m, const uint8_t read[256]) {
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
  free(model->arc_starts);
  free(model->state_blocks);
  free(model->block_states);
  free(model->pool);
  free(model->string_offsets);
  free(model->texts);
  free(model->text_offsets);
  free(model->attach);
  free(model->blocks);
  free(model->byte_tables);
  free(model->start_pairs);
  free(model);
}

/* Why the state and arc records cannot be followed, or NULL; where: the record. */
static const char* check_records(t2s_model* m, const unsigned char* states, file_records f,
                                 unsigned long long* where) {
  if (m->start < -1 || (m->start >= 0 && (uint32_t)m->start >= m->num_states))
    return "start state out of range";
  /* Each state's arcs follow the previous state's, so no arc is counted twice: overlapping
     ranges would let a small file ask for blocks of gigabytes. */
  for (uint32_t i = 0; i < m->num_states; ++i) {
    const unsigned char* at = states + (size_t)i * 12;
    uint32_t const first = u32_at(at), end = u32_at(at + 4);
    *where = i;
    if (first > end || end > m->num_arcs) return "state with an arc range outside the arcs";
    if (first != m->arc_starts[i]) return "state whose arcs do not follow the previous state's";
    if (at[8] > 1) return "state with a final flag other than 0 or 1";
    m->arc_starts[i + 1] = end;
  }
  *where = m->arc_starts[m->num_states];
  if (m->arc_starts[m->num_states] != m->num_arcs) return "arcs that belong to no state";
  for (uint32_t i = 0; i < m->num_arcs; ++i) {
    arc_record const a = arc_in_file(f, i);
    *where = i;
    if (a.next < 0 || (uint32_t)a.next >= m->num_states) return "arc to a state out of range";
    if (a.output >= m->num_strings) return "arc with an output string out of range";
    if (a.weight != a.weight) return "arc with a weight that is not a number";
  }
  /* Every string takes at least its zero byte: more strings than bytes is a lie. */
  *where = m->num_strings;
  if (m->num_strings > m->pool_size) return "more strings than bytes in the string pool";
  /* Exactly num_strings zero-terminated strings fill the pool. */
  m->string_offsets =
      (uint32_t*)malloc((m->num_strings ? (size_t)m->num_strings : 1) * sizeof(uint32_t));
  uint32_t offset = 0, n = 0;
  while (m->string_offsets && offset < m->pool_size && n < m->num_strings) {
    m->string_offsets[n++] = offset;
    const char* end = memchr(m->pool + offset, 0, m->pool_size - offset);
    if (!end) break;
    offset = (uint32_t)(end - m->pool) + 1;
  }
  if (n != m->num_strings || offset != m->pool_size ||
      (m->pool_size && m->pool[m->pool_size - 1] != 0))
    return "string pool is not exactly the counted zero-terminated strings";
  return NULL;
}

t2s_model* t2s_model_from_memory(const void* data, size_t size, char* error, size_t error_size) {
  return t2s_model_from_memory_with(data, size, 0, error, error_size);
}

t2s_model* t2s_model_from_memory_with(const void* data, size_t size, int options, char* error,
                                      size_t error_size) {
  const unsigned char* bytes = (const unsigned char*)data;
  uint64_t at = 0;
#define NEED(n, what)                                                                         \
  if ((uint64_t)size < at + (uint64_t)(n)) {                                                  \
    fail(error, error_size, "model is truncated: %s needs %llu bytes at offset %llu of %llu", \
         what, (unsigned long long)(n), (unsigned long long)at, (unsigned long long)size);    \
    t2s_model_free(model);                                                                    \
    return NULL;                                                                              \
  }
  t2s_model* model = (t2s_model*)calloc(1, sizeof(t2s_model));
  if (!model) return NULL;
  model->fold_case = (options & T2S_IGNORE_CASE) != 0;
  NEED(8, "the header");
  model->start = (int32_t)u32_at(bytes);
  model->num_states = u32_at(bytes + 4);
  at = 8;
  NEED((uint64_t)model->num_states * 12, "the state records");
  const unsigned char* states = bytes + at;
  at += (uint64_t)model->num_states * 12;
  NEED(4, "the arc count");
  model->num_arcs = u32_at(bytes + at);
  at += 4;
  NEED((uint64_t)model->num_arcs * 16, "the arc records");
  file_records const f = {bytes + at, states + 8};
  at += (uint64_t)model->num_arcs * 16;
  NEED(8, "the string counts");
  model->num_strings = u32_at(bytes + at);
  model->pool_size = u32_at(bytes + at + 4);
  at += 8;
  NEED(model->pool_size, "the string pool");
#undef NEED
  model->pool = (char*)malloc(model->pool_size ? model->pool_size : 1);
  model->arc_starts = (uint32_t*)calloc((size_t)model->num_states + 1, sizeof(uint32_t));
  if (!model->pool || !model->arc_starts) {
    fail(error, error_size, "out of memory loading a model");
    t2s_model_free(model);
    return NULL;
  }
  if (model->pool_size) memcpy(model->pool, bytes + at, model->pool_size);
  at += model->pool_size;
  if (at != size) {
    fail(error, error_size, "model has %llu bytes after its string pool",
         (unsigned long long)(size - at));
    t2s_model_free(model);
    return NULL;
  }
  /* Everything that the decoder will follow must point inside the model. */
  unsigned long long where = 0;
  const char* problem = check_records(model, states, f, &where);
  if (problem) {
    fail(error, error_size, "model is inconsistent: %s (%llu)", problem, where);
    t2s_model_free(model);
    return NULL;
  }
  uint8_t read[256] = {0};
  const char* failure = build_blocks(model, f, read);
  if (!failure && !build_start_pairs(model, read)) failure = "out of memory loading a model";
  if (!failure && !t2s_prepare_texts(model)) failure = "out of memory loading a model";
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
static t2s_model* load_by_reading(FILE* f, const char* path, int options, char* error,
                                  size_t error_size) {
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
  t2s_model* model = t2s_model_from_memory_with(data, size, options, error, error_size);
  free(data);
  return model;
}

t2s_model* t2s_model_load(const char* path, char* error, size_t error_size) {
  return t2s_model_load_with(path, 0, error, error_size);
}

t2s_model* t2s_model_load_with(const char* path, int options, char* error, size_t error_size) {
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
      t2s_model* model = t2s_model_from_memory_with(data, size, options, error, error_size);
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
  return load_by_reading(f, path, options, error, error_size);
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
  *first_arc = m->arc_starts[i];
  *end_arc = m->arc_starts[i + 1];
  *final = block_final(m->blocks + m->state_blocks[i]);
  return 1;
}

int t2s_model_arc(const t2s_model* m, uint32_t i, uint8_t* input, uint32_t* output, int32_t* next,
                  float* weight) {
  if (i >= m->num_arcs) return 0;
  /* Its state: the last whose first arc is at most i. */
  uint32_t low = 0, high = m->num_states;
  while (high - low > 1) {
    uint32_t const middle = low + (high - low) / 2;
    if (m->arc_starts[middle] <= i)
      low = middle;
    else
      high = middle;
  }
  const uint32_t* block = m->blocks + m->state_blocks[low];
  uint32_t const k = i - m->arc_starts[low];
  const uint32_t* arc = block_arc(block, k);
  *input = block_one(block) ? block_one_input(block) : block_inputs(block)[k];
  *output = arc[2];
  *next = (int32_t)arc_target(m, arc);
  *weight = arc_weight(arc);
  return 1;
}
