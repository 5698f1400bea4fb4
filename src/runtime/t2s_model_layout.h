/* How a loaded T2S model is laid out in memory, shared by the loader and the decoder. */
#ifndef T2S_MODEL_LAYOUT_H
#define T2S_MODEL_LAYOUT_H

#include <stdint.h>
#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include "t2s_runtime.h"

/* An arc as read from the file, while its state's block is built. */
typedef struct {
  uint8_t input;
  uint32_t output;
  int32_t next;
  float weight;
} arc_record;

/* The model is kept as the decoder reads it: each state is one block of 32-bit words holding
   everything a step needs, so reading a byte touches the block of the state it leaves and
   nothing else. Blocks start 16 bytes apart. A state with one arc, not an epsilon arc, has a block
   of four words (one aligned piece of a cache line): word 0 is its input byte << BLOCK_FLAGS with
   the BLOCK_ flags and BLOCK_ONE, then come the arc's three words. These blocks come first, so
   that a block's number for the stamps is its offset / 4. Any other block: word 0 is its arc
   count << BLOCK_FLAGS with the flags; word 1 has bit b & 31 set for each byte b that an arc
   reads (a quick, sometimes too hopeful, answer to whether the state reads b); word 2 is its
   number for the stamps; with BLOCK_TABLE, word 3 is the number of its byte table; then come the
   arcs' input bytes, sorted (epsilon first) and padded to a word, and per arc three words: the
   word offset of its destination's block, its weight, its output. A byte table (states of many
   arcs) holds for each byte value b the position of the first arc reading b; entry 256 is the
   arc count. */
#define BLOCK_FINAL 1u
#define BLOCK_EPSILON 2u
#define BLOCK_TABLE 4u
#define BLOCK_BLANK 8u /* it has arcs reading a space or a tab */
#define BLOCK_ONE 16u
#define BLOCK_FLAGS 5
#define BLOCK_MAX_ARCS (UINT32_MAX >> BLOCK_FLAGS)
#define BYTE_TABLE_SIZE 257
#define BLOCK_HEADER 3  /* words of a block of several arcs before the table number or inputs */
#define ONE_ARC_BLOCK 4 /* words of a block of one arc */

/* Where a word's first two bytes (neither of them its last) lead from the start state along the
   clean path (t2s_clean_path.c), and their weight; block is NO_PAIR where that path is not the
   only one. Every text starts at the start state, which is usually the widest: its steps cost
   the most. Indexed by the two bytes' classes (class 0: a blank, or a byte no arc reads). */
typedef struct {
  uint32_t block;
  float weight;
} start_pair;
#define NO_PAIR UINT32_MAX

struct t2s_model {
  int32_t start;
  uint32_t num_states, num_arcs, num_strings, pool_size;
  uint32_t* arc_starts;   /* the file's first arc of each state, then num_arcs */
  uint32_t* state_blocks; /* the word offset of each state's block */
  uint32_t* block_states; /* the state of each block number */
  char* pool;
  uint32_t* string_offsets; /* where string i starts in the pool */
  /* The strings as written text (t2s_text.c): marks taken off, each zero-terminated */
  char* texts;
  uint32_t* text_offsets; /* num_strings + 1 of them */
  uint8_t* attach;        /* T2S_ATTACH_PREVIOUS | T2S_ATTACH_NEXT of each string */
  int has_attach;         /* any string attaches */
  int fold_case;          /* loaded with T2S_IGNORE_CASE: arcs read small letters only */
  uint32_t* blocks;
  uint32_t start_block;  /* word offset of the start state's block */
  uint32_t one_end;      /* of the blocks of one arc, which come first */
  uint32_t* byte_tables; /* BYTE_TABLE_SIZE entries a table */
  int has_epsilon;       /* any arc with input 0 */
  uint8_t pair_class[256];
  uint32_t n_pair_classes; /* class 0 included */
  start_pair* start_pairs; /* n_pair_classes squared */
};

/* Fills texts, text_offsets, attach and has_attach from the string pool; 0 when out of memory. */
int t2s_prepare_texts(t2s_model* m);

/* The number of the block at a word offset: one per state, for the stamps and block_states. */
static inline uint32_t block_number(const t2s_model* m, uint32_t offset) {
  return offset < m->one_end ? offset / ONE_ARC_BLOCK : m->blocks[offset + 2];
}

static inline int block_one(const uint32_t* block) { return (block[0] & BLOCK_ONE) != 0; }
/* The input byte of a block of one arc. */
static inline uint8_t block_one_input(const uint32_t* block) {
  return (uint8_t)(block[0] >> BLOCK_FLAGS);
}
static inline uint32_t block_arcs(const uint32_t* block) {
  return block_one(block) ? 1 : block[0] >> BLOCK_FLAGS;
}
static inline int block_final(const uint32_t* block) { return (block[0] & BLOCK_FINAL) != 0; }
static inline int block_epsilon(const uint32_t* block) { return (block[0] & BLOCK_EPSILON) != 0; }
static inline int block_blank(const uint32_t* block) { return (block[0] & BLOCK_BLANK) != 0; }
/* The inputs of a block of several arcs. */
static inline const uint8_t* block_inputs(const uint32_t* block) {
  return (const uint8_t*)(block + BLOCK_HEADER + ((block[0] & BLOCK_TABLE) != 0));
}
/* Arc k's three words: destination block, weight bits, output. */
static inline const uint32_t* block_arc(const uint32_t* block, uint32_t k) {
  if (block_one(block)) return block + 1;
  return block + BLOCK_HEADER + ((block[0] & BLOCK_TABLE) != 0) +
         ((block[0] >> BLOCK_FLAGS) + 3) / 4 + 3 * k;
}
/* The arc of a block of one arc. */
static inline const uint32_t* block_only_arc(const uint32_t* block) { return block + 1; }
/* 0 when the block surely has no arc reading c (epsilon arcs aside). */
static inline int block_may_read(const uint32_t* block, uint8_t c) {
  if (block_one(block)) return block_one_input(block) == c;
  return (block[1] >> (c & 31)) & 1;
}
static inline float arc_weight(const uint32_t* arc) {
  union {
    uint32_t bits;
    float value;
  } w = {arc[1]};
  return w.value;
}

/* The blanks between words. Space, tab, CR, LF: bits 32, 9, 13, 10. */
static inline int is_blank(unsigned char c) { return c <= ' ' && ((0x100002600ull >> c) & 1); }

typedef struct {
  uint32_t first, end;
} arc_span;

/* The positions of the arcs of a block that read c. The inputs are sorted, so c's arcs are one
   run: with SSE2 sixteen inputs are compared at once (sixteen bytes read from any input stay
   inside its block, as at least twelve bytes of arcs follow the inputs). */
static inline arc_span arcs_reading(const t2s_model* m, const uint32_t* block, uint8_t c) {
  arc_span span;
  if (block_one(block)) {
    span.first = block_one_input(block) == c ? 0 : 1;
    span.end = 1;
    return span;
  }
  if (block[0] & BLOCK_TABLE) {
    const uint32_t* table = m->byte_tables + (size_t)block[BLOCK_HEADER] * BYTE_TABLE_SIZE;
    span.first = table[c];
    span.end = table[c + 1];
    return span;
  }
  const uint8_t* inputs = block_inputs(block);
  uint32_t const n = block[0] >> BLOCK_FLAGS;
  if (n == 1) { /* an epsilon arc */
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
    span.end = k + 32 - (uint32_t)__builtin_clz(equal);
    if (span.end == k + 16) /* the run may go on past these sixteen */
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

/* Of n arcs (from arc on) that read a byte inside a word, the one that emits nothing, or NULL
   when none or several do. */
static inline const uint32_t* only_silent_arc(const uint32_t* arc, uint32_t n) {
  if (n - 1 < 2) { /* one or two arcs, the usual case: chosen without a loop to mispredict */
    const uint32_t* const second = arc + 3 * (n - 1);
    int const first_silent = arc[2] == 0, second_silent = (n == 2) & (second[2] == 0);
    if (first_silent + second_silent != 1) return NULL;
    return first_silent ? arc : second;
  }
  const uint32_t* silent = NULL;
  for (; n > 0; --n, arc += 3) {
    if (arc[2]) continue;
    if (silent) return NULL;
    silent = arc;
  }
  return silent;
}

/* The arc that the clean path takes from a block on byte c inside a word: the only one reading c
   that emits nothing, where the block has no epsilon arcs; NULL where there is no such arc. */
static inline const uint32_t* clean_arc_inside_word(const t2s_model* m, const uint32_t* block,
                                                    uint8_t c) {
  if (c == 0 || block_epsilon(block)) return NULL;
  arc_span const span = arcs_reading(m, block, c);
  return only_silent_arc(block_arc(block, span.first), span.end - span.first);
}

#endif
