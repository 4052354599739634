/* libkafx_proc: fixed-point audio effects. Umbrella header. */
#ifndef KAFX_PROC_H
#define KAFX_PROC_H

#include "kafx_proc/band_split.h"
#include "kafx_proc/biquad.h"
#include "kafx_proc/bp_ns.h"
#include "kafx_proc/channel_balance.h"
#include "kafx_proc/compressor.h"
#include "kafx_proc/dc_remove.h"
#include "kafx_proc/delay.h"
#include "kafx_proc/drc.h"
#include "kafx_proc/elliptic.h"
#include "kafx_proc/equalizer.h"
#include "kafx_proc/fft_int.h"
#include "kafx_proc/fixed_math.h"
#include "kafx_proc/hp_effect.h"
#include "kafx_proc/hp_effect_chain.h"
#include "kafx_proc/howling_canceling.h"
#include "kafx_proc/ns.h"
#include "kafx_proc/notch.h"
#include "kafx_proc/parametric_eq.h"
#include "kafx_proc/reverb.h"
#include "kafx_proc/smart_volume_control.h"
#include "kafx_proc/smooth_volume.h"
#include "kafx_proc/speaker_boost.h"
#include "kafx_proc/speaker_boost_chain.h"
#include "kafx_proc/speaker_boost_system.h"
#include "kafx_proc/stereo_widening_system.h"
#include "kafx_proc/virtual_bass_system.h"

#endif
