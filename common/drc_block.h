// Two dynamic range controllers over the same block (the two channels of a
// compressor, the two sides of a limiter band), for their owners.
#ifndef KAFX_COMMON_DRC_BLOCK_H
#define KAFX_COMMON_DRC_BLOCK_H

#include "kafx_proc/drc.h"

namespace kafx {

// Identical to dynamic_range_control_process(da, in_a, out_a, count) and then
// dynamic_range_control_process(db, in_b, out_b, count); the two per-sample
// gain recursions advance side by side. Each output may be its own input.
void dynamic_range_control_process_pair(dynamic_range_control_t* da, int* in_a, int* out_a,
                                        dynamic_range_control_t* db, int* in_b, int* out_b, int count);

}  // namespace kafx

#endif
