// Private tables of the fixed-point noise suppressor (see nsx_tables.cpp).
#ifndef KAFX_NS_NSX_TABLES_H
#define KAFX_NS_NSX_TABLES_H

#include <cstdint>

namespace kafx::nsx {

extern const int16_t kLogTableFrac[256];
extern const int16_t kWindow128[128];
extern const int16_t kWindow256[256];
extern const int16_t kFactor1Table[257];
extern const int16_t kFactor2Aggressiveness1[257];
extern const int16_t kFactor2Aggressiveness2[257];
extern const int16_t kFactor2Aggressiveness3[257];
extern const int16_t kSumLogIndex[66];
extern const int16_t kSumSquareLogIndex[66];
extern const int16_t kLogIndex[129];
extern const int16_t kDeterminantEstMatrix[66];
extern const int16_t kIndicatorTable[17];

}  // namespace kafx::nsx

#endif
