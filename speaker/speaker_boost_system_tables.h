// Coefficient tables of the speaker boost system, Q28 biquads in the order
// b0, b1, b2, a1, a2 (feedback terms stored with the sign that is added).
#ifndef KAFX_SPEAKER_BOOST_SYSTEM_TABLES_H
#define KAFX_SPEAKER_BOOST_SYSTEM_TABLES_H

#include <cstdint>

namespace kafx::sbs_tables {

// Crossovers: split1 A, split1 B, split2 A, split2 B, split3 A, split3 B.
// A is the low-pass branch (first output), B the high-pass (second output);
// each branch runs its section twice (fourth order).
struct CrossoverSet {
  int32_t coef[6][5];
};

inline constexpr CrossoverSet kCrossover48000 = {{
    {70236, 140473, 70236, 524449850, -256295343},
    {262295162, -524590324, 262295162, 524449850, -256295343},
    {952869, 1905738, 952869, 489769607, -225145629},
    {245837672, -491675345, 245837672, 489769607, -225145629},
    {7112376, 14224753, 7112376, 399880653, -159894704},
    {207052703, -414105406, 207052703, 399880653, -159894704},
}};

inline constexpr CrossoverSet kCrossover44100 = {{
    {83041, 166083, 83041, 523351812, -255248523},
    {261758947, -523517895, 261758947, 523351812, -255248523},
    {1120643, 2241286, 1120643, 485624122, -221671239},
    {243932704, -487865408, 243932704, 485624122, -221671239},
    {8268278, 16536557, 8268278, 388112813, -152750473},
    {202324685, -404649370, 202324685, 388112813, -152750473},
}};

inline constexpr CrossoverSet kCrossover96000 = {{
    {17761, 35522, 17761, 530659581, -262295171},
    {265347552, -530695104, 265347552, 530659581, -262295171},
    {248444, 496889, 248444, 513281073, -245839397},
    {256888981, -513777963, 256888981, 513281073, -245839397},
    {1990936, 3981872, 1990936, 467623060, -207151350},
    {235802466, -471604933, 235802466, 467623060, -207151350},
}};

// Band-pass after the harmonic generator, by rate class (0..3). The 192 kHz
// row is all zero: the harmonic band is silent there.
inline constexpr int32_t kNldFilter[4][5] = {
    {7433276, 0, -7433276, 521156877, -253568901},
    {6845285, 0, -6845285, 522463337, -254744883},
    {3468019, 0, -3468019, 529753275, -261499416},
    {0, 0, 0, 0, 0},
};

// Input pre-filters, by rate class. The 192 kHz row is all zero: an enabled
// system outputs silence at that rate.
inline constexpr int32_t kPreFilter[4][5] = {
    {188765458, 30745136, 33272995, 64448379, -48796514},
    {183560140, 0, 31493941, 107017611, -53636238},
    {157546209, -148535990, 52515403, 326985330, -120075497},
    {0, 0, 0, 0, 0},
};

// Samples per limiter block (5 ms) by rate class.
inline constexpr int32_t kFrameLen[4] = {220, 240, 480, 960};

inline const CrossoverSet& crossover_for(int rate_class) {
  switch (rate_class) {
    case 0: return kCrossover44100;
    case 2: return kCrossover96000;
    default: return kCrossover48000;
  }
}

}  // namespace kafx::sbs_tables

#endif
