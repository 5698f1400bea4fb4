#include "sq.h"

#include <math.h>
#include <stdlib.h>
#include <string.h>

struct sq_trainer {
  unsigned levels;
  double* values;
  size_t n, capacity;
};

struct sq_quantizer {
  unsigned levels;
  double* level;    /* ascending */
  double* between;  /* levels - 1 boundaries: the midpoints of neighbouring levels */
};

sq_trainer* sq_trainer_lloyd_max_new(unsigned bits) {
  if (bits < 1 || bits > 16) return NULL;
  sq_trainer* t = (sq_trainer*)calloc(1, sizeof(sq_trainer));
  if (t) t->levels = 1u << bits;
  return t;
}

void sq_trainer_incorporate(sq_trainer* t, double value) {
  if (t->n == t->capacity) {
    size_t capacity = t->capacity ? 2 * t->capacity : 1024;
    double* bigger = (double*)realloc(t->values, capacity * sizeof(double));
    if (!bigger) return;
    t->values = bigger;
    t->capacity = capacity;
  }
  t->values[t->n++] = value;
}

void sq_trainer_incorporate_sequence(sq_trainer* t, const double* values, size_t n) {
  for (size_t i = 0; i < n; ++i) sq_trainer_incorporate(t, values[i]);
}

void sq_trainer_delete(sq_trainer* t) {
  if (!t) return;
  free(t->values);
  free(t);
}

static int ascending(const void* a, const void* b) {
  double x = *(const double*)a, y = *(const double*)b;
  return x < y ? -1 : x > y;
}

/* The first index of sorted[0, n) whose value exceeds x. */
static size_t after(const double* sorted, size_t n, double x) {
  size_t low = 0, high = n;
  while (low < high) {
    size_t middle = low + (high - low) / 2;
    if (sorted[middle] <= x) low = middle + 1;
    else high = middle;
  }
  return low;
}

sq_quantizer* sq_trainer_train(sq_trainer* t) {
  if (!t || t->n == 0) return NULL;
  size_t const n = t->n;
  unsigned const levels = t->levels;
  double* sorted = (double*)malloc(n * sizeof(double));
  double* sum = (double*)malloc((n + 1) * sizeof(double)); /* prefix sums of sorted */
  sq_quantizer* q = (sq_quantizer*)calloc(1, sizeof(sq_quantizer));
  if (q) q->level = (double*)malloc(levels * sizeof(double));
  if (q) q->between = (double*)malloc(levels * sizeof(double));
  if (!sorted || !sum || !q || !q->level || !q->between) {
    free(sorted);
    free(sum);
    sq_quantizer_delete(q);
    return NULL;
  }
  memcpy(sorted, t->values, n * sizeof(double));
  qsort(sorted, n, sizeof(double), ascending);
  sum[0] = 0;
  for (size_t i = 0; i < n; ++i) sum[i + 1] = sum[i] + sorted[i];
  q->levels = levels;
  /* Start at the quantiles; then cells of nearest values and their means, to a fixed point. */
  for (unsigned i = 0; i < levels; ++i)
    q->level[i] = sorted[(size_t)(((double)i + 0.5) / levels * (double)n)];
  double const range = sorted[n - 1] - sorted[0];
  for (int iteration = 0; iteration < 200; ++iteration) {
    double moved = 0;
    size_t begin = 0;
    for (unsigned i = 0; i < levels; ++i) {
      size_t end = i + 1 < levels ? after(sorted, n, (q->level[i] + q->level[i + 1]) / 2) : n;
      if (end > begin) {
        double mean = (sum[end] - sum[begin]) / (double)(end - begin);
        moved = fmax(moved, fabs(mean - q->level[i]));
        q->level[i] = mean;
      }
      begin = end > begin ? end : begin;
    }
    /* Cell means keep the levels in order; equal neighbours (more levels than distinct
       values) stay equal and simply share their cell. */
    if (moved <= 1e-12 * (range > 0 ? range : 1)) break;
  }
  for (unsigned i = 0; i + 1 < levels; ++i) q->between[i] = (q->level[i] + q->level[i + 1]) / 2;
  free(sorted);
  free(sum);
  return q;
}

unsigned sq_quantize(const sq_quantizer* q, double value) {
  unsigned low = 0, high = q->levels - 1; /* the first boundary not below value */
  while (low < high) {
    unsigned middle = low + (high - low) / 2;
    if (q->between[middle] < value) low = middle + 1;
    else high = middle;
  }
  return low;
}

unsigned sq_quantizer_n_levels(const sq_quantizer* q) { return q->levels; }

double sq_quantizer_level(const sq_quantizer* q, unsigned index) {
  return index < q->levels ? q->level[index] : NAN;
}

void sq_quantizer_delete(sq_quantizer* q) {
  if (!q) return;
  free(q->level);
  free(q->between);
  free(q);
}
