// Built-in calibration records of the headphone chain (generated into
// hp_effect_tables.cpp by tools/calgen/calgen_hp_presets.cpp).
#ifndef KAFX_HEADPHONE_HP_EFFECT_TABLES_H
#define KAFX_HEADPHONE_HP_EFFECT_TABLES_H

#include "kafx_proc/hp_effect_chain.h"

namespace kafx {

// Preset 3, the parametric equalizer: [0] for 44100 Hz, [1] for every other
// rate class. Head values (status, gains) are not used by the chain.
extern const param_eq_param_acdb_t kHpParametricPreset[2];

// Headphone-adapter corrections, [rate class][hpadapter_type - 1]. The
// 96000 and 192000 Hz records are all zero (both gains 0: silence).
extern const param_eq_param_acdb_t kHpAdapterTable[4][KEDO_HP_EFFECT_ADAPTERS];

// Preset 2, the virtual bass, per rate class; index 0 (status) is not used.
extern const virtual_bass_param_acdb_t kHpVirtualBassPreset[4];

}  // namespace kafx

#endif
