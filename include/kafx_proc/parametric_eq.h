/*
 * Parametric equalizer: per channel a Q13 input gain followed by a cascade of
 * ten biquad sections (Q28 coefficients, 32-bit variant). Bands are handed in
 * as ready coefficient sets, six ints per band:
 *   [0] enable (0 = section transparent; other values kept and read back)
 *   [1..5] b0, b1, b2, a1, a2 in Q28 (pass-through: 268435456, 0, 0, 0, 0)
 * The owner writes status, gain_left and gain_right directly or through the
 * one-word accessors; the block itself never reads status.
 */
#ifndef KAFX_PROC_PARAMETRIC_EQ_H
#define KAFX_PROC_PARAMETRIC_EQ_H

#include "biquad.h"

#define PARAMETER_EQUALIZER_BANDS 10

typedef struct parameter_equalizer_t {
  int32_t status;
  int32_t gain_left;  /* Q13 */
  int32_t gain_right; /* Q13 */
  IIR_t* left_band[PARAMETER_EQUALIZER_BANDS];
  IIR_t* right_band[PARAMETER_EQUALIZER_BANDS];
} parameter_equalizer_t;

KAFX_EXTERN_C_BEGIN

KAFX_API void parameter_equalizer_init(parameter_equalizer_t* eq);
KAFX_API void parameter_equalizer_reset(parameter_equalizer_t* eq);
KAFX_API void parameter_equalizer_end(parameter_equalizer_t* eq);
KAFX_API void parameter_equalizer_setstatus(parameter_equalizer_t* eq, int status);
KAFX_API void parameter_equalizer_getstatus(parameter_equalizer_t* eq, int* status);
KAFX_API void parameter_equalizer_set_gain_left(parameter_equalizer_t* eq, int gain);
KAFX_API void parameter_equalizer_get_gain_left(parameter_equalizer_t* eq, int* gain);
KAFX_API void parameter_equalizer_set_gain_right(parameter_equalizer_t* eq, int gain);
KAFX_API void parameter_equalizer_get_gain_right(parameter_equalizer_t* eq, int* gain);
KAFX_API void parameter_equalizer_setparameter_left(parameter_equalizer_t* eq, const int (*bands)[6]);
KAFX_API void parameter_equalizer_setparameter_right(parameter_equalizer_t* eq, const int (*bands)[6]);
KAFX_API void parameter_equalizer_getparameter_left(parameter_equalizer_t* eq, int (*bands)[6]);
KAFX_API void parameter_equalizer_getparameter_right(parameter_equalizer_t* eq, int (*bands)[6]);
/* count < 1 does nothing; outputs may alias inputs. */
KAFX_API void parameter_equalizer_process_stereo(parameter_equalizer_t* eq, int* in_left, int* in_right,
                                                 int* out_left, int* out_right, int count);
KAFX_API void parameter_equalizer_process_mono(parameter_equalizer_t* eq, int* in, int* out, int count);

KAFX_EXTERN_C_END

#endif
