/* How a loaded T2S model is laid out in memory, shared by the loader and the decoder. */
#ifndef T2S_MODEL_LAYOUT_H
#define T2S_MODEL_LAYOUT_H

#include <stdint.h>

/* The file's records, kept as read (arcs sorted by input within each state) for the look-inside
   functions and the load-time checks. */
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

/* The decoder reads a second copy made for it: each state is one block of 32-bit words holding
   everything a step needs, so reading a byte touches the block of the state it leaves and
   nothing else (one cache line for most states):
     word 0    the state's number
     word 1    its arc count << BLOCK_FLAGS | BLOCK_FINAL | BLOCK_EPSILON | BLOCK_TABLE |
   BLOCK_BLANK word 2    with BLOCK_TABLE: the number of its byte table then      the arcs' input
   bytes, sorted (epsilon first), padded to a word then      per arc: the word offset of its
   destination's block, its weight, its output. A byte table (states of many arcs) holds for each
   byte value b the position of the first arc reading b; entry 256 is the arc count. */
#define BLOCK_FINAL 1u
#define BLOCK_EPSILON 2u
#define BLOCK_TABLE 4u
#define BLOCK_BLANK 8u /* it has arcs reading a space or a tab */
#define BLOCK_FLAGS 4
#define BLOCK_MAX_ARCS (UINT32_MAX >> BLOCK_FLAGS)
#define BYTE_TABLE_SIZE 257

struct t2s_model {
  int32_t start;
  uint32_t num_states, num_arcs, num_strings, pool_size;
  state_record* states;
  arc_record* arcs;
  char* pool;
  uint32_t* string_offsets; /* where string i starts in the pool */
  uint32_t* blocks;
  uint32_t start_block;  /* word offset of the start state's block */
  uint32_t* byte_tables; /* BYTE_TABLE_SIZE entries a table */
  int has_epsilon;       /* any arc with input 0 */
};

static inline uint32_t block_state(const uint32_t* block) { return block[0]; }
static inline uint32_t block_arcs(const uint32_t* block) { return block[1] >> BLOCK_FLAGS; }
static inline int block_final(const uint32_t* block) { return (block[1] & BLOCK_FINAL) != 0; }
static inline int block_epsilon(const uint32_t* block) { return (block[1] & BLOCK_EPSILON) != 0; }
static inline const uint8_t* block_inputs(const uint32_t* block) {
  return (const uint8_t*)(block + 2 + ((block[1] & BLOCK_TABLE) != 0));
}
/* Arc k's three words: destination block, weight bits, output. */
static inline const uint32_t* block_arc(const uint32_t* block, uint32_t k) {
  return block + 2 + ((block[1] & BLOCK_TABLE) != 0) + (block_arcs(block) + 3) / 4 + 3 * k;
}
static inline float arc_weight(const uint32_t* arc) {
  union {
    uint32_t bits;
    float value;
  } w = {arc[1]};
  return w.value;
}

#endif
