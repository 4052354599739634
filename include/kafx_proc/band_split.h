/*
 * Two-way crossover (two identical biquads in series per branch, Q28
 * coefficients) and the non-linear device (NLD): an optional symmetric
 * clipper with a slowly moving limit followed by an eighth-order polynomial
 * evaluated as a chain of fixed-point products. Both take 24-bit working
 * samples in int32.
 */
#ifndef KAFX_PROC_BAND_SPLIT_H
#define KAFX_PROC_BAND_SPLIT_H

#include "biquad.h"

typedef struct spectral_band_split {
  IIR_t* first_a;  /* first output: two sections from coefficient set A */
  IIR_t* second_a;
  IIR_t* first_b;  /* second output: two sections from coefficient set B */
  IIR_t* second_b;
} spectral_band_split;

typedef struct NLD {
  int32_t* coef;        /* c0..c7, owned; ratios between successive terms */
  int32_t clip_flag;    /* 0 = no clipping before the polynomial */
  int32_t clip_limit;   /* target clip limit, working-sample units */
  int32_t clip_current; /* limit in force, glides toward clip_limit by 1/128 per sample */
  int32_t clip_level;   /* as last set (16-bit units through the setter) */
} NLD;

KAFX_EXTERN_C_BEGIN

KAFX_API void spectral_band_split_init(spectral_band_split* s, const int* coef_a, const int* coef_b);
KAFX_API void spectral_band_split_reinit(spectral_band_split* s, const int* coef_a, const int* coef_b);
KAFX_API void spectral_band_split_reset(spectral_band_split* s);
KAFX_API void spectral_band_split_end(spectral_band_split* s);
KAFX_API void spectral_band_split_process(spectral_band_split* s, int* in, int* out_a, int* out_b);

KAFX_API void NLD_init(NLD* n);
KAFX_API void NLD_reset(NLD* n);
KAFX_API void NLD_end(NLD* n);
KAFX_API void NLD_set_clip_flag(NLD* n, int flag);
KAFX_API void NLD_get_clip_flag(NLD* n, int* flag);
KAFX_API void NLD_set_clip_level(NLD* n, int level);
KAFX_API void NLD_get_clip_level(NLD* n, int* level);
KAFX_API void clip_process(NLD* n, int* in, int* out);
KAFX_API void multiplier_process(NLD* n, int* in, int* out);
KAFX_API void NLD_process(NLD* n, int* in, int* out);

KAFX_EXTERN_C_END

#endif
