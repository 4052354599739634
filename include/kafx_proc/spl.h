/*
 * Signal-processing library: mono 16-bit sample-rate conversion and the
 * small vector / FFT utilities.
 *
 * Resampling is built from two kinds of stage:
 *   - half-band by-2 stages: the signal is split into its even and odd
 *     phases, each phase runs through a cascade of three first-order
 *     all-pass sections, and the two branch outputs are summed (decimation),
 *     interleaved (interpolation) or averaged (low-pass at the same rate);
 *   - fractional polyphase FIR stages (3:2, 4:3, 11:8 and 16:11) with short
 *     symmetric Q15 tap tables, working on 32-bit intermediate samples that
 *     carry the signal shifted left by 15 plus a rounding offset of 16384.
 * The fixed-ratio resamplers chain those stages for one 10 ms block and
 * keep their filter history in the state records below (all zero after the
 * matching reset).  Resampler_t chains the fixed-ratio resamplers into one
 * of 21 modes chosen from the reduced ratio of two rates.
 *
 * Buffers handed to one stage must not overlap unless stated otherwise.
 * All routines are integer only and keep no global state; only
 * Resampler_config allocates (the stage states). Resampler_proc never
 * allocates: its intermediate signals live on the stack (under 6 KiB).
 */
#ifndef KAFX_PROC_SPL_H
#define KAFX_PROC_SPL_H

#include "kafx_export.h"

/* ---- State records of the fixed-ratio resamplers (32-bit words) -------- */

/* 48 kHz -> 16 kHz: low-pass by 2 at 48 kHz, 48 -> 32, 32 -> 16. */
typedef struct kedoSpl_State48khzTo16khz {
  int lp_48_48[16];
  int fir_48_32[8];
  int down_32_16[8];
} kedoSpl_State48khzTo16khz;

/* 16 kHz -> 48 kHz: 16 -> 32, 32 -> 24, 24 -> 48. */
typedef struct kedoSpl_State16khzTo48khz {
  int up_16_32[8];
  int fir_32_24[8];
  int up_24_48[8];
} kedoSpl_State16khzTo48khz;

/* 48 kHz -> 8 kHz: 48 -> 24, low-pass by 2 at 24 kHz, 24 -> 16, 16 -> 8. */
typedef struct kedoSpl_State48khzTo8khz {
  int down_48_24[8];
  int lp_24_24[16];
  int fir_24_16[8];
  int down_16_8[8];
} kedoSpl_State48khzTo8khz;

/* 8 kHz -> 48 kHz: 8 -> 16, 16 -> 12, 12 -> 24, 24 -> 48. */
typedef struct kedoSpl_State8khzTo48khz {
  int up_8_16[8];
  int fir_16_12[8];
  int up_12_24[8];
  int up_24_48[8];
} kedoSpl_State8khzTo48khz;

/* 22 kHz -> 16 kHz: 22 -> 44, 44 -> 32, 32 -> 16. */
typedef struct kedoSpl_State22khzTo16khz {
  int up_22_44[8];
  int fir_44_32[8];
  int down_32_16[8];
} kedoSpl_State22khzTo16khz;

/* 16 kHz -> 22 kHz: 16 -> 32, 32 -> 22. */
typedef struct kedoSpl_State16khzTo22khz {
  int up_16_32[8];
  int fir_32_22[8];
} kedoSpl_State16khzTo22khz;

/* 22 kHz -> 8 kHz: low-pass by 2 at 22 kHz, 22 -> 16, 16 -> 8. */
typedef struct kedoSpl_State22khzTo8khz {
  int lp_22_22[16];
  int fir_22_16[8];
  int down_16_8[8];
} kedoSpl_State22khzTo8khz;

/* 8 kHz -> 22 kHz: 8 -> 16, 16 -> 11, 11 -> 22. */
typedef struct kedoSpl_State8khzTo22khz {
  int up_8_16[8];
  int fir_16_11[8];
  int up_11_22[8];
} kedoSpl_State8khzTo22khz;

/* ---- General mono resampler -------------------------------------------- */

typedef struct Resampler_t {
  int* stage1_state;     /* first stage of the mode's chain (owned) or null */
  int* stage2_state;     /* second stage or null */
  int* stage3_state;     /* third stage or null */
  short* spare_buffer_a; /* reserved, null; freed by Resampler_delete if set */
  short* spare_buffer_b; /* reserved, null; freed by Resampler_delete if set */
  int spare_size_a;      /* reserved, zero */
  int spare_size_b;      /* reserved, zero */
  int spare_max_a;       /* reserved, zero */
  int spare_max_b;       /* reserved, zero */
  int in_khz;            /* input rate / 1000 */
  int out_khz;           /* output rate / 1000 */
  int mode;              /* conversion mode 0..20 */
} Resampler_t;

KAFX_EXTERN_C_BEGIN

/* Zero the record. */
KAFX_API void Resampler_init(Resampler_t* r);
/* Zero the record, reduce in_rate:out_rate by their gcd, pick the mode and
 * allocate and reset its stage states. Unsupported pairs (and rates that are
 * not positive) become mode 0, a plain copy. Frees nothing: call once after
 * Resampler_init. When a state cannot be allocated, none is kept (the mode
 * stays set) and every Resampler_proc on the record returns -1. */
KAFX_API void Resampler_config(Resampler_t* r, int in_rate, int out_rate);
/* Convert one block. 0 on success (output length through out_len), -1 when
 * the output would exceed max_out_len (checked first) or in_len does not
 * suit the mode's block size (or is negative) or the mode's states are
 * missing (a failed Resampler_config); on -1 nothing is written (the
 * 3:2 mode checks its block size only after its first stage has run on the
 * input). Mode 0 copies in_len samples whatever max_out_len says; a stored
 * mode above 20 returns 0 and writes nothing. */
KAFX_API int Resampler_proc(Resampler_t* r, const short* in, int in_len, short* out,
                            int max_out_len, int* out_len);
/* Free the stage states and spare buffers that are set, and null them. */
KAFX_API void Resampler_delete(Resampler_t* r);

/* ---- Fixed-ratio resamplers (one 10 ms block per call) ------------------
 * tmp is caller-owned scratch of at least the stated number of 32-bit words. */

/* 480 -> 160 samples, 496 words of scratch. */
KAFX_API void kedoSpl_Resample48khzTo16khz(const short* in, short* out,
                                           kedoSpl_State48khzTo16khz* state, int* tmp);
KAFX_API void kedoSpl_ResetResample48khzTo16khz(kedoSpl_State48khzTo16khz* state);
/* 160 -> 480 samples, 336 words of scratch. */
KAFX_API void kedoSpl_Resample16khzTo48khz(const short* in, short* out,
                                           kedoSpl_State16khzTo48khz* state, int* tmp);
KAFX_API void kedoSpl_ResetResample16khzTo48khz(kedoSpl_State16khzTo48khz* state);
/* 480 -> 80 samples, 496 words of scratch. */
KAFX_API void kedoSpl_Resample48khzTo8khz(const short* in, short* out,
                                          kedoSpl_State48khzTo8khz* state, int* tmp);
KAFX_API void kedoSpl_ResetResample48khzTo8khz(kedoSpl_State48khzTo8khz* state);
/* 80 -> 480 samples, 336 words of scratch. */
KAFX_API void kedoSpl_Resample8khzTo48khz(const short* in, short* out,
                                          kedoSpl_State8khzTo48khz* state, int* tmp);
KAFX_API void kedoSpl_ResetResample8khzTo48khz(kedoSpl_State8khzTo48khz* state);
/* 220 -> 160 samples, 104 words of scratch. */
KAFX_API void kedoSpl_Resample22khzTo16khz(const short* in, short* out,
                                           kedoSpl_State22khzTo16khz* state, int* tmp);
KAFX_API void kedoSpl_ResetResample22khzTo16khz(kedoSpl_State22khzTo16khz* state);
/* 160 -> 220 samples, 88 words of scratch. */
KAFX_API void kedoSpl_Resample16khzTo22khz(const short* in, short* out,
                                           kedoSpl_State16khzTo22khz* state, int* tmp);
KAFX_API void kedoSpl_ResetResample16khzTo22khz(kedoSpl_State16khzTo22khz* state);
/* 220 -> 80 samples, 126 words of scratch. */
KAFX_API void kedoSpl_Resample22khzTo8khz(const short* in, short* out,
                                          kedoSpl_State22khzTo8khz* state, int* tmp);
KAFX_API void kedoSpl_ResetResample22khzTo8khz(kedoSpl_State22khzTo8khz* state);
/* 80 -> 220 samples, 98 words of scratch. */
KAFX_API void kedoSpl_Resample8khzTo22khz(const short* in, short* out,
                                          kedoSpl_State8khzTo22khz* state, int* tmp);
KAFX_API void kedoSpl_ResetResample8khzTo22khz(kedoSpl_State8khzTo22khz* state);

/* ---- By-2 all-pass stages ------------------------------------------------
 * 16-bit stages: Q16 all-pass coefficients, 8 words of state; the
 * decimator (len -> len / 2) may run in place (out == in). */
KAFX_API void kedoSpl_DownsampleBy2(const short* in, short len, short* out, int* state);
KAFX_API void kedoSpl_UpsampleBy2(const short* in, short len, short* out, int* state);

/* Internal-format stages: Q15 all-pass coefficients; 32-bit samples are the
 * signal << 15 plus 16384. 8 words of state (LP: 16). The decimators take
 * len input samples and produce len / 2; kedoSpl_DownBy2IntToShort uses its
 * input block as scratch (it is overwritten). The interpolators produce
 * 2 len samples, the low-pass stages len. */
KAFX_API void kedoSpl_DownBy2IntToShort(int* in, int len, short* out, int* state);
KAFX_API void kedoSpl_DownBy2ShortToInt(const short* in, int len, int* out, int* state);
KAFX_API void kedoSpl_UpBy2ShortToInt(const short* in, int len, int* out, int* state);
KAFX_API void kedoSpl_UpBy2IntToInt(const int* in, int len, int* out, int* state);
KAFX_API void kedoSpl_UpBy2IntToShort(const int* in, int len, short* out, int* state);
KAFX_API void kedoSpl_LPBy2ShortToInt(const short* in, int len, int* out, int* state);
KAFX_API void kedoSpl_LPBy2IntToInt(const int* in, int len, int* out, int* state);

/* ---- Fractional polyphase stages (K blocks each) ------------------------
 * Input: 32-bit samples; the taps read 3K + 6, 4K + 6, 11K + 7 and 16K + 7
 * values. Output: the signal << 15 plus 16384. kedoSpl_Resample48khzTo32khz
 * may also run in place with out <= in (out trailing the input). */
KAFX_API void kedoSpl_Resample48khzTo32khz(const int* in, int* out, int K);
KAFX_API void kedoSpl_Resample32khzTo24khz(const int* in, int* out, int K);
KAFX_API void kedoSpl_Resample44khzTo32khz(const int* in, int* out, int K);
KAFX_API void kedoSpl_32khzTo22khzIntToInt(const int* in, int* out, int K);

/* ---- Complex FFT ----------------------------------------------------------
 * Interleaved 16-bit re/im pairs, n = 2^stages points (n <= 1024). */
KAFX_API void kedoSpl_ComplexBitReverse(short* frfi, int stages);
/* Forward radix-2 DIT on bit-reversed input, each stage halves the data;
 * mode 0 truncates the twiddle products, mode 1 rounds. -1 if n > 1024. */
KAFX_API int kedoSpl_ComplexFFT(short* frfi, int stages, int mode);
/* Inverse with block floating point; returns the number of right shifts
 * applied (-1 if n > 1024). */
KAFX_API int kedoSpl_ComplexIFFT(short* frfi, int stages, int mode);

/* ---- Fill and copy --------------------------------------------------------- */
KAFX_API void kedoSpl_MemSetW16(short* v, short value, int len);
KAFX_API void kedoSpl_MemSetW32(int* v, int value, int len);
KAFX_API short kedoSpl_ZerosArrayW16(short* v, short len);
KAFX_API short kedoSpl_ZerosArrayW32(int* v, short len);
KAFX_API short kedoSpl_OnesArrayW16(short* v, short len);
KAFX_API short kedoSpl_OnesArrayW32(int* v, short len);
/* dest[0] = src[0], dest[-1] = src[1], ... (len values, walking backwards). */
KAFX_API void kedoSpl_MemCpyReversedOrder(short* dest, short* src, int len);
/* Copies the last n of in_len values to out; returns n. */
KAFX_API short kedoSpl_CopyFromEndW16(const short* in, short in_len, short n, short* out);

/* ---- Extreme values ---------------------------------------------------------
 * Null vector or len < 1: the MaxAbs and index routines return -1, MaxValue
 * the type's minimum, MinValue the type's maximum. Indexes are those of the
 * first extreme element. */
KAFX_API short kedoSpl_MaxAbsValueW16(const short* v, int len);
KAFX_API int kedoSpl_MaxAbsValueW32(const int* v, int len);
KAFX_API short kedoSpl_MaxValueW16(const short* v, int len);
KAFX_API int kedoSpl_MaxValueW32(const int* v, int len);
KAFX_API short kedoSpl_MinValueW16(const short* v, int len);
KAFX_API int kedoSpl_MinValueW32(const int* v, int len);
KAFX_API int kedoSpl_MaxAbsIndexW16(const short* v, int len);
KAFX_API int kedoSpl_MaxIndexW16(const short* v, int len);
KAFX_API int kedoSpl_MaxIndexW32(const int* v, int len);
KAFX_API int kedoSpl_MinIndexW16(const short* v, int len);
KAFX_API int kedoSpl_MinIndexW32(const int* v, int len);

/* ---- Energy and square root ------------------------------------------------ */
/* Right shift that keeps `times` squares of the vector's largest magnitude
 * inside 32 bits. */
KAFX_API short kedoSpl_GetScalingSquare(short* in, int len, int times);
/* Sum of v[i]^2 >> *scale, with *scale = kedoSpl_GetScalingSquare(v, len, len). */
KAFX_API int kedoSpl_Energy(short* v, int len, int* scale);
/* floor(sqrt(value)) for value >= 0; 0 for negative values. */
KAFX_API int kedoSpl_SqrtFloor(int value);

KAFX_EXTERN_C_END

#endif
