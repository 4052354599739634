/*
 * Channel balance: cross-mixes one channel into the other with a Q13 ratio
 * (positive: right into left, zero or negative: left into right) and folds a
 * stereo pair to mono. Stateless apart from its parameters.
 */
#ifndef KAFX_PROC_CHANNEL_BALANCE_H
#define KAFX_PROC_CHANNEL_BALANCE_H

#include "kafx_export.h"

typedef struct channel_balance_t {
  int32_t status;          /* init: 1 */
  int32_t reserved[2];     /* not written by init, not read by processing */
  int32_t channel_ration;  /* Q13 cross-mix ratio, init 0 */
  int32_t channel_num;     /* stored only, init 2 */
} channel_balance_t;

KAFX_EXTERN_C_BEGIN

KAFX_API void channel_balance_init(channel_balance_t* cb);
KAFX_API void channel_balance_end(channel_balance_t* cb);
KAFX_API void channel_balance_reset(channel_balance_t* cb);
KAFX_API void channel_balance_setstatus(channel_balance_t* cb, int status);
KAFX_API void channel_balance_getstatus(channel_balance_t* cb, int* status);
KAFX_API void channel_balance_set_channel_ration(channel_balance_t* cb, int ration);
KAFX_API void channel_balance_get_channel_ration(channel_balance_t* cb, int* ration);
KAFX_API void channel_balance_set_channel_num(channel_balance_t* cb, int num);
KAFX_API void channel_balance_get_channel_num(channel_balance_t* cb, int* num);
KAFX_API void channel_balance_process_stereo(channel_balance_t* cb, int* in_left, int* in_right,
                                             int* out_left, int* out_right, int count);
KAFX_API void channel_balance_process_mono(channel_balance_t* cb, int* in_left, int* in_right,
                                           int* out, int count);

KAFX_EXTERN_C_END

#endif
