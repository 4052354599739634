// The headphone chain's generated calibration tables, compiled into the
// `kafx` tool for `kafx plot headphone` (the library does not export them).
// The numbers are the library's own file, not a copy typed here.
#include "../headphone/hp_effect_tables.cpp"
