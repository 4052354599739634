/*
 * Noise suppressor core: a single-channel fixed-point spectral noise
 * suppressor on 10 ms blocks of 16-bit samples (80 samples at 8 kHz, 160 at
 * 16 kHz; at 32 kHz the block is 160 samples and is treated as 16 kHz, so the
 * caller feeds the lower band or a 16 kHz signal).
 *
 * Per block: windowed FFT analysis (128 or 256 points, Q14 window), quantile
 * noise estimation (three staggered estimators on the Q8 log spectrum),
 * speech/noise likelihood from three spectral features, a Wiener-type gain in
 * Q14 with an over-drive (Q8), a denoising floor (Q14) and, for the stronger
 * policies, an energy-dependent gain table (Q13), then inverse FFT and
 * overlap-add. The band post-processing of bp_ns.h steers the prior speech
 * probability (BP_ns_app), tracks the input peaks (BP_ns_pre) and limits
 * output clicks (BP_ns_post). Output samples saturate to 16 bits.
 *
 * Robustness: every function returning int returns -1 for a null instance;
 * kedoNs_ProcessCore also returns -1 for a null frame or an instance that was
 * not initialised (or whose kedoNs_InitCore failed). The void accessors and
 * the three analysis/synthesis steps do nothing when given a null instance
 * or buffer. kedoNs_FreeCore frees bp_info only; the record belongs to the
 * caller. Re-initialising without kedoNs_FreeCore leaks the old bp_info.
 *
 * Concurrency: one instance per thread at a time. The six routine pointers
 * below are process-wide; they are constant-initialised to the plain
 * routines and kedoNs_InitCore only re-installs the same values (an atomic
 * store, and only when a pointer differs), so any number of instances may be
 * initialised and run on different threads at once.
 */
#ifndef KAFX_PROC_NS_H
#define KAFX_PROC_NS_H

#include "kafx_export.h"
#include "bp_ns.h"

#define KEDO_NSX_ANAL_BLOCKL_MAX 256 /* longest analysis block */
#define KEDO_NSX_HALF_ANAL_BLOCKL 129 /* magnitude bins of the longest block */
#define KEDO_NSX_SIMULT 3            /* simultaneous quantile estimators */
#define KEDO_NSX_HIST_PAR_EST 1000   /* histogram length of the feature statistics */

typedef struct NsxInst_t_ {
  int canceling_status; /* on/off word of the owning chain (0 = off); not tested here */

  unsigned int fs;           /* 8000, 16000 or 32000 */
  int block_len;             /* 10 ms block: 80 or 160 samples */
  int ana_len;               /* analysis length: 128 or 256 */
  int stages;                /* log2(ana_len): 7 or 8 */
  const int16_t* window;     /* Q14 analysis/synthesis window, ana_len values */
  int magn_len;              /* ana_len / 2 + 1 bins */
  int ana_len2;              /* ana_len / 2 */

  /* Quantile noise estimation: log quantiles (Q8), densities (Q9), counters. */
  int16_t noise_est_log_quantile[KEDO_NSX_SIMULT * KEDO_NSX_HALF_ANAL_BLOCKL];
  int16_t noise_est_density[KEDO_NSX_SIMULT * KEDO_NSX_HALF_ANAL_BLOCKL];
  int16_t noise_est_counter[KEDO_NSX_SIMULT];
  int16_t noise_est_quantile[KEDO_NSX_HALF_ANAL_BLOCKL]; /* Q(q_noise) */
  uint16_t noise_sup_filter[KEDO_NSX_HALF_ANAL_BLOCKL];  /* Wiener gains, Q14 */
  int16_t prior_non_speech_prob;                          /* Q14 */

  /* Aggressiveness (kedoNs_set_policy_core). */
  int aggr_mode;               /* 0..3 */
  uint16_t overdrive;          /* Q8 */
  uint16_t denoise_bound;      /* Q14 */
  int gain_map;                /* 1 when factor2_table is used */
  const int16_t* factor2_table; /* Q13, 257 entries, or null */

  /* Overlap buffers (Q0). */
  int16_t analysis_buffer[KEDO_NSX_ANAL_BLOCKL_MAX];
  int16_t synthesis_buffer[KEDO_NSX_ANAL_BLOCKL_MAX];

  /* Spectral sums of the current frame, Q(norm_data - stages) and its square. */
  uint32_t magn_energy;
  uint32_t sum_magn;
  int zero_input_signal; /* 1 when the windowed frame is all zeros */
  int norm_data;         /* left shift that normalised the windowed frame */

  /* Speech/noise features and their statistics. */
  int32_t max_lrt;
  int32_t min_lrt;
  int32_t log_lrt_time_avg[KEDO_NSX_HALF_ANAL_BLOCKL]; /* Q12 */
  int32_t feature_log_lrt;
  int32_t threshold_log_lrt;
  int16_t weight_log_lrt;
  uint32_t feature_spec_diff;
  uint32_t threshold_spec_diff;
  int16_t weight_spec_diff;
  uint32_t feature_spec_flat; /* Q10 */
  uint32_t threshold_spec_flat;
  int16_t weight_spec_flat;
  int32_t avg_magn_pause[KEDO_NSX_HALF_ANAL_BLOCKL]; /* Q(prev_q_magn) */
  uint32_t cur_avg_magn_energy;
  uint32_t time_avg_magn_energy;
  uint32_t time_avg_magn_energy_tmp;
  int16_t hist_lrt[KEDO_NSX_HIST_PAR_EST];
  int16_t hist_spec_flat[KEDO_NSX_HIST_PAR_EST];
  int16_t hist_spec_diff[KEDO_NSX_HIST_PAR_EST];
  int model_update;      /* blocks between threshold updates (512) */
  int cnt_thres_update;

  /* Start-up noise model (white and pink). */
  uint32_t white_noise_level;                          /* Q(min_norm - stages) */
  uint32_t init_magn_est[KEDO_NSX_HALF_ANAL_BLOCKL];   /* Q(min_norm - stages) */
  int32_t pink_noise_numerator;                        /* Q11 */
  int32_t pink_noise_exp;                              /* Q14 */
  int min_norm;

  /* Previous frame. */
  uint32_t prev_noise[KEDO_NSX_HALF_ANAL_BLOCKL]; /* Q(prev_q_noise + 11) */
  uint16_t prev_magn[KEDO_NSX_HALF_ANAL_BLOCKL];  /* Q(prev_q_magn) */
  int block_index; /* blocks processed (not silent) minus one */
  int q_noise;
  int prev_q_noise;
  int prev_q_magn;

  /* Spectrum of the current frame and its energy before suppression. */
  int16_t real[KEDO_NSX_ANAL_BLOCKL_MAX];
  int16_t imag[KEDO_NSX_ANAL_BLOCKL_MAX];
  int32_t energy_in;
  int scale_energy_in;

  int init_flag;     /* 1 after a successful kedoNs_InitCore */
  BPInfo_tag* bp_info; /* band post-processing, owned */
} NsxInst_t_;

/* The six replaceable processing routines. */
typedef void (*kedoNsx_NoiseEstimation_t)(NsxInst_t_* inst, unsigned short* magn,
                                          unsigned int* noise, short* q_noise);
typedef void (*kedoNsx_PrepareSpectrum_t)(NsxInst_t_* inst, short* freq_buf);
typedef void (*kedoNsx_SynthesisUpdate_t)(NsxInst_t_* inst, short* out_frame, short gain_factor);
typedef void (*kedoNsx_AnalysisUpdate_t)(NsxInst_t_* inst, short* out, short* new_speech);
typedef void (*kedoNsx_Denormalize_t)(NsxInst_t_* inst, short* in, int factor);
typedef void (*kedoNsx_CreateComplexBuffer_t)(NsxInst_t_* inst, short* in, short* out);

KAFX_EXTERN_C_BEGIN

/* Quantile noise estimate of magn (Q(norm_data - stages)) into noise, Q(*q_noise). */
KAFX_API extern kedoNsx_NoiseEstimation_t kedoNsx_NoiseEstimation;
/* Apply the Wiener gains to real/imag and write the full conjugate-symmetric
 * complex spectrum (2 * ana_len shorts) for the inverse FFT. */
KAFX_API extern kedoNsx_PrepareSpectrum_t kedoNsx_PrepareSpectrum;
/* Window the inverse-FFT output (real, Q0) with the Q13 gain factor, add it
 * into the synthesis buffer (saturating), emit block_len samples, shift. */
KAFX_API extern kedoNsx_SynthesisUpdate_t kedoNsx_SynthesisUpdate;
/* Append new_speech to the analysis buffer and write the windowed buffer to out. */
KAFX_API extern kedoNsx_AnalysisUpdate_t kedoNsx_AnalysisUpdate;
/* real[i] = sat16(in[2 i] shifted by factor - norm_data) (in: complex IFFT output). */
KAFX_API extern kedoNsx_Denormalize_t kedoNsx_Denormalize;
/* out = in << norm_data interleaved with zero imaginary parts (2 * ana_len). */
KAFX_API extern kedoNsx_CreateComplexBuffer_t kedoNsx_CreateComplexBuffer;

/* k * ln 2 in Q8, k = 0..8. */
KAFX_API extern const short kedoNsx_kLogTable[9];
/* round(32768 / k) for the counter values k = 1..200 (index 0 holds 32767). */
KAFX_API extern const short kedoNsx_kCounterDiv[201];

/* -1 for a null instance, a rate other than 8000, 16000, 32000, or when the
 * band post-processing record cannot be allocated (the instance is then not
 * initialised: kedoNs_ProcessCore refuses it). */
KAFX_API int kedoNs_InitCore(NsxInst_t_* inst, unsigned int fs);
/* Policy 0..3 (mode tested as unsigned); -1 otherwise, keeping the old one. */
KAFX_API int kedoNs_set_policy_core(NsxInst_t_* inst, int mode);
/* One 10 ms block; in_frame and out_frame may be the same buffer. */
KAFX_API int kedoNs_ProcessCore(NsxInst_t_* inst, short* in_frame, short* out_frame);
/* BP_ns_delete(bp_info), nulls it; 0 (-1 for a null instance). */
KAFX_API int kedoNs_FreeCore(NsxInst_t_* inst);
KAFX_API void kedoNs_canceling_setstatus(NsxInst_t_* inst, int status);
KAFX_API void kedoNs_canceling_getstatus(NsxInst_t_* inst, int* status);

/* The frame steps (exported for hosts that drive the core step by step).
 * kedoNsx_DataAnalysis adds each block to the start-up noise model, which
 * the block count weighs; only kedoNs_ProcessCore advances that count, so a
 * host driving the steps runs them once per block in the core's order
 * (analysis, speech probability, synthesis) and advances the record's
 * block_index as the core does. Used otherwise, and kedoNsx_SpeechNoiseProb
 * on any SNR words, the steps stay defined (shift counts limited to 31,
 * sums wrapping) but their results mean nothing. */
KAFX_API void kedoNsx_DataAnalysis(NsxInst_t_* inst, short* in_frame, unsigned short* magn);
KAFX_API void kedoNsx_SpeechNoiseProb(NsxInst_t_* inst, unsigned short* non_speech_prob,
                                      unsigned int* prior_snr, unsigned int* post_snr);
KAFX_API void kedoNsx_DataSynthesis(NsxInst_t_* inst, short* out_frame);

KAFX_EXTERN_C_END

#endif
