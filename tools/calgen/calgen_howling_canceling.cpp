// Howling canceller: the table of notch centre coefficients (which also
// gives the FFT twiddles and the Hann window) and the analysis low-pass.
//
// The low-pass is a classic elliptic (Cauer) design after S. J. Orfanidis'
// formulation with Landen transformations: the analogue prototype's zeros
// j / (k cd(u_i K, k)) and poles j cd((u_i - j v0) K, k), u_i = (2i - 1) / N,
// mapped by the pre-warped bilinear transform and multiplied out into one
// sixth-order direct form.
#include <cmath>
#include <complex>
#include <cstdio>
#include <numbers>
#include <string>
#include <vector>

#include "calgen.h"

namespace calgen {

namespace {

using cplx = std::complex<double>;
constexpr double kPi = std::numbers::pi;

constexpr double kRate = 48000;
constexpr int kOrder = 6;
constexpr double kPassEdge = 10500;   // Hz
constexpr double kPassRipple = 0.5;   // dB
constexpr double kStopAtten = 50;     // dB

// Descending Landen moduli k_1, k_2, ... of k (until they vanish).
std::vector<double> landen(double k) {
  std::vector<double> v;
  for (int n = 0; n < 12; ++n) {
    const double kp = std::sqrt(1 - k * k);
    k = (k / (1 + kp)) * (k / (1 + kp));
    v.push_back(k);
  }
  return v;
}

// cd(u K, k) and sn(u K, k) for complex u (u in units of the quarter period).
cplx cde(cplx u, double k) {
  const std::vector<double> v = landen(k);
  cplx w = std::cos(u * kPi / 2.0);
  for (int n = static_cast<int>(v.size()) - 1; n >= 0; --n) w = (1 + v[n]) * w / (1.0 + v[n] * w * w);
  return w;
}
cplx sne(cplx u, double k) {
  const std::vector<double> v = landen(k);
  cplx w = std::sin(u * kPi / 2.0);
  for (int n = static_cast<int>(v.size()) - 1; n >= 0; --n) w = (1 + v[n]) * w / (1.0 + v[n] * w * w);
  return w;
}

// Inverse of sn: u with sn(u K, k) = w.
cplx asne(cplx w, double k) {
  const std::vector<double> v = landen(k);
  double prev = k;
  for (double kn : v) {
    w = w / (1.0 + std::sqrt(1.0 - w * w * prev * prev)) * 2.0 / (1 + kn);
    prev = kn;
  }
  // acde: u = (2 / pi) acos(w); asne = 1 - acde.
  return 1.0 - 2.0 / kPi * std::acos(w);
}

// Selectivity k of an order-N elliptic filter with discrimination k1 (degree equation).
double ellipdeg(int n, double k1) {
  const double k1p = std::sqrt(1 - k1 * k1);
  double prod = 1;
  for (int i = 1; i <= n / 2; ++i) prod *= sne((2.0 * i - 1) / n, k1p).real();
  const double kp = std::pow(k1p, n) * std::pow(prod, 4);
  return std::sqrt(1 - kp * kp);
}

std::vector<double> poly_mul(const std::vector<double>& a, const std::vector<double>& b) {
  std::vector<double> r(a.size() + b.size() - 1, 0.0);
  for (size_t i = 0; i < a.size(); ++i)
    for (size_t j = 0; j < b.size(); ++j) r[i + j] += a[i] * b[j];
  return r;
}

struct Design {
  std::vector<double> b, a;  // z^-1 polynomials, a[0] = 1 (textbook signs)
  double stop_edge = 0;      // Hz
};

Design design_lowpass() {
  const double ep = std::sqrt(std::pow(10, kPassRipple / 10) - 1);
  const double es = std::sqrt(std::pow(10, kStopAtten / 10) - 1);
  const double k1 = ep / es;
  const double k = ellipdeg(kOrder, k1);
  const cplx v0 = -cplx(0, 1) * asne(cplx(0, 1) / ep, k1) / static_cast<double>(kOrder);
  const double wp = std::tan(kPi * kPassEdge / kRate);  // pre-warped pass edge
  Design d;
  d.stop_edge = std::atan(wp / k) * kRate / kPi;
  std::vector<double> num{1}, den{1};
  for (int i = 1; i <= kOrder / 2; ++i) {
    const double u = (2.0 * i - 1) / kOrder;
    const double zeta = cde(u, k).real();
    const double zz = 1 / (k * zeta);                       // zero at +-j zz (normalised)
    const cplx p = cplx(0, 1) * cde(cplx(u, 0) - cplx(0, 1) * v0, k);  // pole (normalised)
    // Section (s^2 + zz^2) / (s^2 - 2 Re p s + |p|^2) * |p|^2 / zz^2 with
    // s = (1 - z^-1) / (wp (1 + z^-1)); multiplied through by wp^2 (1 + z^-1)^2.
    const double z2 = zz * zz * wp * wp, p2 = std::norm(p) * wp * wp, pr = -2 * p.real() * wp;
    const std::vector<double> n = {1 + z2, 2 * (z2 - 1), 1 + z2};
    const std::vector<double> m = {1 + pr + p2, 2 * (p2 - 1), 1 - pr + p2};
    const double scale = std::norm(p) / (zz * zz);
    num = poly_mul(num, {n[0] * scale, n[1] * scale, n[2] * scale});
    den = poly_mul(den, m);
  }
  const double gain = std::pow(10, -kPassRipple / 20);  // even order: the DC gain sits at the ripple bottom
  const double a0 = den[0];
  for (double& x : num) x = x / a0 * gain;
  for (double& x : den) x /= a0;
  d.b = num;
  d.a = den;
  return d;
}

constexpr const char* kDesign =
    "Tables of the howling canceller (ktv/howling_canceling.cpp, ktv/fft_int.cpp).\n"
    "\n"
    "kHowlingCentre[k] = -2 cos(pi k / 128) in Q28, k = 0 .. 127, each value\n"
    "rounded to nearest (llround(x * 2^28)): the notch centre coefficient that\n"
    "puts a notch's zeros on bin k of the 256-point analysis at 48 kHz\n"
    "(k * 187.5 Hz). Ascending, so find_freq_idx searches it by bisection. The\n"
    "same values give the FFT twiddles (cos(2 pi k / 256) = -entry / 2^29, the\n"
    "sines by the quarter-period shift) and the Hann window\n"
    "(0.5 - 0.5 cos(2 pi n / 256) = 1/2 + entry / 4). Written as constants in\n"
    "this header so that the FFT's twiddle and window tables are computed from\n"
    "them at compile time.\n"
    "\n"
    "kHowlingLowpass: the analysis low-pass, b0..b6 then a1..a6 (feedback terms\n"
    "negated, the sign that is added), Q20, each rounded to nearest. Sixth-order\n"
    "elliptic (Cauer) low-pass at 48 kHz: pass band to 10500 Hz with 0.5 dB\n"
    "ripple (DC at -0.5 dB), stop band 50 dB down from the edge printed below\n"
    "(Orfanidis' Landen-transformation design, pre-warped bilinear transform).\n"
    "It keeps the peak search (bins 1 .. 63, up to 11.8 kHz) free of what lies\n"
    "above, and the level of every bin it passes within 0.5 dB.\n";

}  // namespace

std::string generate_howling_canceling() {
  const Generator* g = find_generator("howling_canceling");
  const Generator fallback{"howling_canceling", "ktv/howling_canceling_tables.h", "", generate_howling_canceling};
  const Design d = design_lowpass();
  char buf[256];
  std::string s = file_header(g != nullptr ? *g : fallback, kDesign);
  std::snprintf(buf, sizeof buf, "Computed stop-band edge: %.1f Hz.\n", d.stop_edge);
  s += "// " + std::string(buf);
  s += "#ifndef KAFX_KTV_HOWLING_CANCELING_TABLES_H\n#define KAFX_KTV_HOWLING_CANCELING_TABLES_H\n\n";
  s += "#include <cstdint>\n\nnamespace kafx {\n\n";
  s += "inline constexpr int kHowlingTableSize = 128;\n\n";
  s += "// -2 cos(pi k / 128), Q28, ascending: notch centres, FFT twiddles, window.\n";
  s += "inline constexpr int32_t kHowlingCentre[kHowlingTableSize] = {\n";
  for (int k = 0; k < 128; ++k) {
    const long long v = std::llround(-2.0 * std::cos(kPi * k / 128.0) * 268435456.0);
    std::snprintf(buf, sizeof buf, "%s%lld,%s", k % 6 == 0 ? "    " : " ", v, (k % 6 == 5 || k == 127) ? "\n" : "");
    s += buf;
  }
  s += "};\n\n";
  s += "// Sixth-order elliptic analysis low-pass, b0..b6, a1..a6 (negated), Q20.\n";
  s += "inline constexpr int32_t kHowlingLowpass[13] = {\n    ";
  for (int i = 0; i <= kOrder; ++i) {
    std::snprintf(buf, sizeof buf, "%lld, ", std::llround(d.b[i] * 1048576.0));
    s += buf;
  }
  s += " // b0..b6\n    ";
  for (int i = 1; i <= kOrder; ++i) {
    std::snprintf(buf, sizeof buf, "%lld,%s", std::llround(-d.a[i] * 1048576.0), i < kOrder ? " " : "");
    s += buf;
  }
  s += "  // a1..a6 (negated)\n};\n\n}  // namespace kafx\n\n#endif\n";
  return s;
}

}  // namespace calgen
