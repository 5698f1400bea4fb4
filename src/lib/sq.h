/* A Lloyd-Max scalar quantizer of 2^bits levels: values are incorporated into a trainer, training
   places the levels where they minimise the mean squared error over those values (alternating
   nearest-level cells and cell means from quantile starts, to a fixed point), and a value then
   quantizes to the index of its nearest level. Training sorts the values once (n log n) and
   costs levels x log n per iteration. Usable from C. */
#ifndef T2SFST_SQ_H
#define T2SFST_SQ_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct sq_trainer sq_trainer;
typedef struct sq_quantizer sq_quantizer;

/* A trainer for 2^bits levels (bits from 1 to 16); NULL otherwise or without memory. */
sq_trainer* sq_trainer_lloyd_max_new(unsigned bits);
void sq_trainer_incorporate(sq_trainer* trainer, double value);
void sq_trainer_incorporate_sequence(sq_trainer* trainer, const double* values, size_t n);
/* The quantizer of the values so far (levels ascending); NULL without values. The trainer
   stays usable. */
sq_quantizer* sq_trainer_train(sq_trainer* trainer);
void sq_trainer_delete(sq_trainer* trainer);

/* The index of the level nearest to value. */
unsigned sq_quantize(const sq_quantizer* quantizer, double value);
unsigned sq_quantizer_n_levels(const sq_quantizer* quantizer);
double sq_quantizer_level(const sq_quantizer* quantizer, unsigned index);
void sq_quantizer_delete(sq_quantizer* quantizer);

#ifdef __cplusplus
}
#endif

#endif
