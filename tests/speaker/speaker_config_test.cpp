// Speaker configuration: XML files and parameter strings reach the record
// and the chain (read back through its getters), refused files change
// nothing, log lines are exact, and seeded random documents load to what a
// model of the format predicts. The shipped examples/speaker.xml has the
// response of examples/speaker_design.txt (sines against the analog
// prototypes, computed here) and the `kafx` tool regenerates it exactly.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <complex>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "kafx_proc/speaker_boost.h"
#include "support/log_capture.h"

namespace {

namespace fs = std::filesystem;
using kafx_test::LogCapture;
using Flat = std::array<int32_t, 168>;
using Changes = std::vector<std::pair<int, int32_t>>;
using Lines = std::vector<std::string>;
constexpr double kPi = 3.14159265358979323846;

Flat flat(const kafx_sp_params_t& p) {
  Flat f;
  std::memcpy(f.data(), &p, sizeof p);
  return f;
}

kafx_sp_params_t record(const Flat& f) {
  kafx_sp_params_t p;
  std::memcpy(&p, f.data(), sizeof p);
  return p;
}

// The chain's settings read back through its getters, laid out like the
// record (index 4: the chain's own channel count, which selects mono).
Flat chain_state(kedo_speaker_boost_t* c) {
  Flat f{};
  kedo_speaker_boost_sbs_getstatus(c, &f[0]);
  kedo_speaker_boost_sbs_get_nld_gain_left(c, &f[1]);
  kedo_speaker_boost_sbs_get_nld_gain_right(c, &f[2]);
  kedo_speaker_boost_cb_get_channel_ration(c, &f[3]);
  f[4] = c->channel_num;
  void (*const drc[8])(kedo_speaker_boost_t*, drc_param_t*) = {
      kedo_speaker_boost_sbs_get_drc_low_left,  kedo_speaker_boost_sbs_get_drc_mid_left,
      kedo_speaker_boost_sbs_get_drc_high_left, kedo_speaker_boost_sbs_get_drc_full_left,
      kedo_speaker_boost_sbs_get_drc_low_right, kedo_speaker_boost_sbs_get_drc_mid_right,
      kedo_speaker_boost_sbs_get_drc_high_right, kedo_speaker_boost_sbs_get_drc_full_right};
  for (size_t i = 0; i < 8; ++i) {
    drc_param_t d;
    drc[i](c, &d);
    std::memcpy(&f[5 + 5 * i], &d, sizeof d);
  }
  kedo_speaker_boost_p_eq_getstatus(c, &f[45]);
  kedo_speaker_boost_p_eq_get_gain_left(c, &f[46]);
  kedo_speaker_boost_p_eq_get_gain_right(c, &f[47]);
  kedo_speaker_boost_p_eq_getparameter_left(c, reinterpret_cast<int(*)[6]>(&f[48]));
  kedo_speaker_boost_p_eq_getparameter_right(c, reinterpret_cast<int(*)[6]>(&f[108]));
  return f;
}

// What the chain holds once a record is applied: the limiters keep their
// expander (denoise) threshold at 2 or more, all else is stored as it is.
Flat chained(Flat f) {
  for (size_t i = 9; i < 45; i += 5) f[i] = std::max(2, f[i]);
  return f;
}

// Arbitrary values that the chain stores unchanged.
Flat random_flat(std::mt19937& g) {
  Flat f;
  for (auto& v : f) v = static_cast<int32_t>(g());
  for (size_t i = 9; i < 45; i += 5) f[i] = static_cast<int32_t>(2 + g() % 0x7ffffffdu);
  return f;
}

std::string doc(const std::string& body) { return "<?xml version=\"1.0\"?>\n<kafxsp>\n" + body + "</kafxsp>\n"; }

std::string hex(uint32_t v) {
  char b[12];
  std::snprintf(b, sizeof b, "%x", v);
  return b;
}

std::string times(const std::string& s, int n) {
  std::string out;
  while (n-- > 0) out += s;
  return out;
}

std::string slurp(const std::string& path) {
  std::ifstream f(path, std::ios::binary);
  std::ostringstream s;
  s << f.rdbuf();
  return s.str();
}

// ctest gives the source root; run by hand, it is three levels above this file.
std::string source(const std::string& relative) {
  const char* root = std::getenv("KAFX_SOURCE_DIR");
  return ((root ? fs::path(root) : fs::path(__FILE__).parent_path().parent_path().parent_path()) / relative).string();
}

// A stereo 48 kHz 16-bit front end and a private scratch folder.
class SpeakerConfig : public ::testing::Test {
 protected:
  SpeakerConfig() {
    std::string p = ::testing::TempDir() + "kafx_spcfg_XXXXXX";
    if (mkdtemp(p.data()) == nullptr) ADD_FAILURE() << "mkdtemp failed for " << p;
    dir = p;
  }
  ~SpeakerConfig() override {
    kafx_speaker_boost_deinit(h);
    std::error_code ec;
    fs::remove_all(dir, ec);
  }
  std::string path(const std::string& name) const { return dir + "/" + name; }
  std::string q(const std::string& name) const { return " '" + path(name) + "'"; }
  std::string write(const std::string& name, const std::string& bytes) const {
    std::ofstream(path(name), std::ios::binary | std::ios::trunc) << bytes;
    return path(name);
  }
  kedo_speaker_boost_t* chain() { return &h->chain; }
  void reset(std::mt19937& g) { // a random record, applied
    start = random_flat(g);
    restore();
  }
  void restore() {
    kafx_sp_params_t p = record(start);
    kafx_speaker_boost_params_update(h, &p);
  }
  int load(const std::string& bytes) { return kafx_speaker_boost_loadconfig(h, write("c.xml", bytes).c_str()); }
  void expect_state(const Flat& want, const std::string& what) {
    EXPECT_EQ(flat(h->params), want) << what;
    EXPECT_EQ(chain_state(chain()), chained(want)) << what;
  }

  std::string dir;
  kafx_speaker_boost_t* h = static_cast<kafx_speaker_boost_t*>(kafx_speaker_boost_init(2, 48000, 1));
  Flat start{};
};

// Each document starts from a random record; only the listed members change,
// and the whole record is applied again.
TEST_F(SpeakerConfig, DocumentsChangeExactlyTheirMembers) {
  struct Case {
    const char* what;
    std::string xml;
    Changes set;
  };
  const Case cases[] = {
      {"gain", doc("<sbs><gain>2000;1000</gain></sbs>"), {{1, 8192}, {2, 4096}}},
      {"three limiter values", doc("<sbs><drc_param_left2>3;7;7fff</drc_param_left2></sbs>"),
       {{15, 3}, {16, 7}, {17, 0x7fff}}},
      {"later sections win, sbs before peq",
       doc("<peq><enable>1</enable><gain>1111;2222</gain><Rfilter>5</Rfilter></peq><sbs><channel_ration>10"
           "</channel_ration><gain>5;6</gain></sbs><peq><gain>3333</gain><enable>0</enable></peq>"
           "<sbs><channel_ration>20</channel_ration><drc_param_right3>;;;;9</drc_param_right3></sbs>"),
       {{45, 0}, {46, 0x3333}, {47, 0x2222}, {108, 5}, {3, 0x20}, {1, 5}, {2, 6}, {44, 9}}},
      {"skipped elements",
       doc("<sbs><gains>1;2</gains><Enable>1</Enable><gain><!-- l;r -->7;8</gain><channel_num/>"
           "<Lfilter>1;2;3</Lfilter><x><enable>1</enable></x><drc_param_left4>1;2</drc_param_left4></sbs>"
           "<peq><channel_ration>5</channel_ration></peq><group><sbs><enable>1</enable></sbs></group>"
           "<SBS><enable>1</enable></SBS>"),
       {}},
      {"no root: nothing parsed, record applied", "<config><sbs><gain>1;1</gain></sbs></config>", {}},
      {"64 levels", "<kafxsp><sbs><gain>2;3</gain>" + times("<n>", 62) + times("</n>", 62) + "</sbs></kafxsp>",
       {{1, 2}, {2, 3}}},
  };
  std::mt19937 g(1);
  LogCapture quiet;
  for (const Case& c : cases) { // the chain is moved off the record first
    reset(g);
    kedo_speaker_boost_sbs_set_nld_gain_left(chain(), 1);
    kedo_speaker_boost_p_eq_setstatus(chain(), 1234);
    ASSERT_EQ(load(c.xml), 0) << c.what;
    Flat want = start;
    for (auto [i, v] : c.set) want[static_cast<size_t>(i)] = v;
    expect_state(want, c.what);
  }
}

// Anything but one well-formed document of at most 1 MiB in a regular file:
// -1, the failure logged at error priority, record and chain untouched.
TEST_F(SpeakerConfig, RefusedFilesChangeNothing) {
  std::mt19937 g(2);
  reset(g);
  const std::string good = doc("<sbs><enable>1</enable><gain>2000;1000</gain></sbs>");
  const std::string fifo = path("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  std::string attributes = "<kafxsp";
  for (int i = 0; i < 100; ++i) attributes += " a" + std::to_string(i) + "='0'";
  auto w = [&](const std::string& name, const std::string& bytes) { return write(name, bytes); };
  const std::pair<const char*, std::string> files[] = {
      {"missing", path("missing.xml")},
      {"fifo", fifo}, // refused, not waited on
      {"longer than its size", "/proc/self/status"},
      {"empty", w("empty", "")},
      {"no element", w("text", "gain 2000;1000\n")},
      {"truncated", w("trunc", good.substr(0, good.size() - 4))},
      {"mismatched", w("mismatch", doc("<sbs><gain>1;1</gian></sbs>"))},
      {"binary", w("bin", std::string("\x7f" "ELF\x02\x01\x01\0\0\0<kafxsp/>", 19))},
      {"not UTF-8", w("latin1", doc("<version>caf\xe9</version>"))},
      {"two roots", w("two", good + "<kafxsp/>")},
      {"trailing text", w("trail", good + "junk")},
      {"open comment", w("comment", good + "<!-- x")},
      {"65 levels", w("deep", "<kafxsp><sbs>" + times("<a>", 63) + times("</a>", 63) + "</sbs></kafxsp>")},
      // A character reference runs to the next ';' and swallows the end tag.
      {"hidden nesting", w("hidden", "<kafxsp>" + times("<a>&#x</a>x1;", 40000) + "</kafxsp>")},
      {"hidden in quotes", w("quoted", "<kafxsp>" + times("<a v=\"&#x\"/>x1;\">", 40000) + "</kafxsp>")},
      {"attributes", w("attr", attributes + "/>")},
      {"over 1 MiB", w("huge", "<kafxsp><version>" + std::string((1u << 20) + 10, 'a') + "</version></kafxsp>")},
  };
  for (const auto& [what, file] : files) {
    LogCapture log;
    EXPECT_EQ(kafx_speaker_boost_loadconfig(h, file.c_str()), -1) << what;
    expect_state(start, what);
    EXPECT_EQ(log.messages(), (Lines{"kafx_speaker_boost_loadconfig: " + file, "LoadAudioConfig fail "})) << what;
    EXPECT_TRUE(log.all().size() == 2 && log.all()[1].priority == ANDROID_LOG_ERROR) << what;
  }
  kafx_sp_params_t separate = record(start);
  EXPECT_EQ(kafx_speaker_boost_params_load_config(&separate, w("t", "<kafxsp>").c_str()), -1);
  EXPECT_EQ(flat(separate), start);
}

// 45 sbs values (a 46th is ignored) and 123 peq values land at their indices;
// empty, malformed and out-of-range tokens keep the member; nothing is logged.
TEST(SpeakerConfigStrings, FillTheirPartOnly) {
  Flat want;
  for (int i = 0; i < 168; ++i) want[static_cast<size_t>(i)] = -1000 - i;
  kafx_sp_params_t p = record(want);
  std::string sbs = "1,8192,8192,0,2", peq;
  for (int i = 0; i < 40; ++i) sbs += "," + std::to_string(100 + i);
  for (int i = 0; i < 123; ++i) peq += (i ? "," : "") + std::to_string(i * 3 - 7);
  LogCapture log;
  kafx_speaker_boost_parse_sbs_params(&p, (sbs + ",555").c_str());
  const int32_t head[5] = {1, 8192, 8192, 0, 2};
  for (size_t i = 0; i < 45; ++i) want[i] = i < 5 ? head[i] : static_cast<int32_t>(95 + i);
  EXPECT_EQ(flat(p), want);
  kafx_speaker_boost_parse_peq_params(&p, peq.c_str());
  for (size_t i = 0; i < 123; ++i) want[45 + i] = static_cast<int32_t>(i * 3) - 7;
  EXPECT_EQ(flat(p), want);
  kafx_speaker_boost_parse_peq_params(&p, "9,,x, 12,2147483648,-2147483648,+7z,-2147483649,2147483647,"
                                          "99999999999999999999"); // beyond 64 bits too
  want[45] = 9, want[48] = 12, want[50] = INT32_MIN, want[51] = 7, want[53] = INT32_MAX;
  EXPECT_EQ(flat(p), want);
  kafx_speaker_boost_parse_sbs_params(&p, "");
  EXPECT_EQ(flat(p), want);
  EXPECT_TRUE(log.all().empty());
}

// Loading into the handle and into a separate record, applying, the partial
// updates and the dump, line by line: tag "kafx_sp_wrapper", debug priority,
// the dump's tab counts as they are.
TEST_F(SpeakerConfig, LoadApplyUpdateAndDumpLines) {
  LogCapture log;
  const std::string p = write("log.xml", doc("<version>v 1.2</version><sbs><enable>1</enable><gain>2000;1000</gain>"
                                             "<channel_ration>-3e8</channel_ration><channel_num>1</channel_num>"
                                             "</sbs><peq><gain>1c85;ffffffff</gain></peq>"));
  ASSERT_EQ(kafx_speaker_boost_loadconfig(h, p.c_str()), 0);
  EXPECT_EQ(log.messages(), (Lines{"kafx_speaker_boost_loadconfig: " + p, "kafxsp version: v 1.2",
                                   "parse sbs parameters:", "parse peq parameters:", "update_speaker_boost_params",
                                   "nld_gain: 0x2000 0x1000", "channel_ration: -1000", "channel_num: 1",
                                   "peq_gain: 0x1c85 0xffffffff"}));
  const Flat loaded = flat(h->params);
  // A separate record starts zeroed and loads without touching the handle.
  auto* sep = static_cast<kafx_sp_params_t*>(kafx_speaker_boost_params_load_init());
  ASSERT_NE(sep, nullptr);
  EXPECT_EQ(flat(*sep), Flat{});
  log.clear();
  const std::string s = write("s.xml", doc("<version/><sbs><enable>3</enable></sbs>"));
  ASSERT_EQ(kafx_speaker_boost_params_load_config(sep, s.c_str()), 0);
  EXPECT_EQ(log.messages(), (Lines{"kafx_speaker_boost_params_load_config: " + s,
                                   "kafxsp version: ", "parse sbs parameters:", "parse peq parameters:"}));
  EXPECT_EQ(flat(*sep), (Flat{3}));
  EXPECT_EQ(flat(h->params), loaded);
  // params_update copies it in and applies it; the handle's own record may be handed back.
  kafx_speaker_boost_params_update(h, sep);
  kafx_speaker_boost_params_load_deinit(sep);
  Flat want{3};
  expect_state(want, "separate record applied");
  h->params.peq.gain[0] = want[46] = 4321;
  kafx_speaker_boost_params_update(h, &h->params);
  expect_state(want, "own record applied");
  log.clear();
  ASSERT_EQ(kafx_speaker_boost_loadconfig(h, write("r.xml", "<other/>").c_str()), 0);
  EXPECT_EQ(log.messages().at(1), "update_speaker_boost_params"); // no root: no parse lines

  // Partial updates apply one part of another record; the stored one stays.
  Flat o;
  for (int i = 0; i < 168; ++i) o[static_cast<size_t>(i)] = i;
  o[1] = 0x2000, o[2] = -1, o[3] = -77, o[49] = 0x10000000, o[52] = -0x100, o[167] = 0x7fffffff;
  kafx_sp_params_t other = record(o);
  log.clear();
  kafx_speaker_boost_update_sbs_params(h, &other.sbs);
  EXPECT_EQ(log.messages(), (Lines{"kafx_speaker_boost_update_sbs_params", "status: 0",
                                   "nld_gain: 0x2000 0xffffffff", "channel_ration: -77", "channel_num: 4"}));
  Flat mixed = chained(want);
  std::copy(o.begin(), o.begin() + 45, mixed.begin());
  EXPECT_EQ(chain_state(chain()), mixed);
  log.clear();
  kafx_speaker_boost_update_peq_params(h, &other);
  EXPECT_EQ(log.messages(), (Lines{"kafx_speaker_boost_update_peq_params", "status: 45", "peq_gain: 0x2e 0x2f"}));
  EXPECT_EQ(chain_state(chain()), o);
  EXPECT_EQ(flat(h->params), want);

  log.clear();
  kafx_speaker_boost_dump_params(&other);
  const Lines m = log.messages();
  ASSERT_EQ(m.size(), 39u);
  const Lines head = {
      "kafx_speaker_boost_dump_params", "sbs params dump:", "enable: 0", "gain: 0x2000 0xffffffff",
      "channel_ration: -77", "channel_num: 4",
      "drc_low_left:\t\t 0x5 0x6 0x7 0x8 0x9",      "drc_mid_left:\t\t 0xa 0xb 0xc 0xd 0xe",
      "drc_high_left:\t 0xf 0x10 0x11 0x12 0x13",   "drc_full_left:\t 0x14 0x15 0x16 0x17 0x18",
      "drc_low_right:\t 0x19 0x1a 0x1b 0x1c 0x1d",  "drc_mid_right:\t 0x1e 0x1f 0x20 0x21 0x22",
      "drc_high_right:\t 0x23 0x24 0x25 0x26 0x27", "drc_full_right:\t 0x28 0x29 0x2a 0x2b 0x2c",
      "peq params dump:", "enable: 45", "gain: 0x2e 0x2f", "Lfilter params:",
      "band[1]:\t 0x00000030 0x10000000 0x00000032 0x00000033 0xffffff00 0x00000035"};
  EXPECT_EQ(Lines(m.begin(), m.begin() + 19), head);
  EXPECT_EQ(m[27], "band[10]:\t 0x00000066 0x00000067 0x00000068 0x00000069 0x0000006a 0x0000006b");
  EXPECT_EQ(m[28], "Rfilter params:");
  EXPECT_EQ(m[38], "band[10]:\t 0x000000a2 0x000000a3 0x000000a4 0x000000a5 0x000000a6 0x7fffffff");
  for (const auto& l : log.all()) EXPECT_TRUE(l.priority == ANDROID_LOG_DEBUG && l.tag == "kafx_sp_wrapper");
}

TEST_F(SpeakerConfig, NullArgumentsDoNothing) {
  const std::string p = write("n.xml", doc("<sbs><enable>1</enable></sbs>"));
  kafx_sp_params_t rec{};
  LogCapture log;
  EXPECT_EQ(kafx_speaker_boost_loadconfig(nullptr, p.c_str()), -1);
  EXPECT_EQ(kafx_speaker_boost_loadconfig(h, nullptr), -1);
  EXPECT_EQ(kafx_speaker_boost_params_load_config(nullptr, p.c_str()), -1);
  EXPECT_EQ(kafx_speaker_boost_params_load_config(&rec, nullptr), -1);
  for (auto [h, r] : {std::pair<void*, void*>{nullptr, &rec}, {h, nullptr}}) {
    kafx_speaker_boost_params_update(h, r);
    kafx_speaker_boost_update_sbs_params(h, r);
    kafx_speaker_boost_update_peq_params(h, r);
    kafx_speaker_boost_parse_sbs_params(h ? &rec : nullptr, h ? nullptr : "1");
    kafx_speaker_boost_parse_peq_params(h ? &rec : nullptr, h ? nullptr : "1");
  }
  kafx_speaker_boost_dump_params(nullptr);
  kafx_speaker_boost_params_load_deinit(nullptr);
  EXPECT_TRUE(log.all().empty());
  EXPECT_EQ(flat(rec), Flat{});
  EXPECT_EQ(flat(h->params), Flat{}); // the front end starts from zeros
}

// ---------------------------------------------------------------------------
// Seeded random documents, generated together with the members they set.

struct Slot { const char* name; int first, count; }; // an element and the members its values fill
const Slot kSbs[12] = {{"enable", 0, 1}, {"gain", 1, 2}, {"channel_ration", 3, 1}, {"channel_num", 4, 1},
    {"drc_param_left0", 5, 5}, {"drc_param_left1", 10, 5}, {"drc_param_left2", 15, 5}, {"drc_param_left3", 20, 5},
    {"drc_param_right0", 25, 5}, {"drc_param_right1", 30, 5}, {"drc_param_right2", 35, 5}, {"drc_param_right3", 40, 5}};
const Slot kPeq[4] = {{"enable", 45, 1}, {"gain", 46, 2}, {"Lfilter", 48, 60}, {"Rfilter", 108, 60}};

struct Gen {
  std::mt19937 g;
  int uni(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(g); }
  bool chance(int percent) { return uni(0, 99) < percent; }
};

// A ';'-separated list for `s` (short, exact or with surplus tokens); the
// members its well-formed tokens set are appended to *set.
std::string value_list(Gen& r, const Slot& s, bool refs, Changes* set) {
  const int shape = r.uni(0, 9);
  const int n = shape < 2 ? r.uni(0, s.count - 1) : shape < 4 ? s.count + r.uni(1, 3) : s.count;
  std::string text;
  for (int k = 0; k < n; ++k) {
    std::string t;
    const int kind = r.uni(0, 9);
    if (kind < 7) { // optional sign, 0x, leading zeros, upper case, trailing junk
      const uint32_t v = r.chance(30) ? static_cast<uint32_t>(r.uni(0, 300)) : static_cast<uint32_t>(r.g());
      const bool negative = r.chance(15);
      std::string digits = hex(negative ? 0u - v : v);
      if (r.chance(30)) for (char& c : digits) c = static_cast<char>(std::toupper(c));
      t = (negative ? "-" : "") + std::string(r.chance(25) ? "0x" : "") + (r.chance(20) ? "0000000000" : "") + digits;
      if (r.chance(10)) t += r.chance(50) ? "zz" : "-1";
      if (refs && r.chance(10)) t = "&#" + (r.chance(50) ? "x" + hex(t[0]) : std::to_string(t[0])) + ";" + t.substr(1);
      if (k < s.count) set->push_back({s.first + k, static_cast<int32_t>(v)});
    } else if (kind == 7) {
      t = r.chance(50) ? "zz" : "-x";
    } else if (kind == 8) { // 33 bits or more, now and then very long
      t = "1" + std::string(static_cast<size_t>(r.chance(3) ? r.uni(1000, 50000) : r.uni(8, 30)), 'f');
    }
    text += (k ? ";" : "") + std::string(r.chance(20) ? " \r\n" : "") + t + (r.chance(20) ? "\t" : "");
  }
  return text;
}

struct GenDoc {
  std::string xml;
  Changes set;
  size_t root_end = 0; // just after the root's end tag
};

GenDoc generate(Gen& r) {
  GenDoc d;
  Changes sbs, peq, ignored;
  const bool root = r.chance(95);
  if (r.chance(50)) d.xml += r.chance(50) ? "\xEF\xBB\xBF<?xml version=\"1.0\"?>\n" : "<!-- tuning -->";
  d.xml += root ? "<kafxsp>" : "<kafxsp_v2>";
  for (int n = r.uni(0, 6); n > 0; --n) {
    const bool is_sbs = r.chance(50);
    d.xml += r.chance(10) ? "<version>1</version>" : "";
    d.xml += is_sbs ? "<sbs>" : "<peq>";
    for (int e = r.uni(0, 7); e > 0; --e) {
      const Slot& s = is_sbs ? kSbs[r.uni(0, 11)] : kPeq[r.uni(0, 3)];
      const std::string name = s.name;
      Changes* set = is_sbs ? &sbs : &peq;
      switch (r.uni(0, 9)) {
        case 0: d.xml += "<" + name + "><![CDATA[" + value_list(r, s, false, set) + "]]>"; break;
        case 1: d.xml += "<" + name + "><!--c-->" + value_list(r, s, true, &ignored); break; // not first child
        case 2: d.xml += "<x" + name + ">" + value_list(r, s, true, &ignored) + "</x" + name + "><" + name + ">"; break;
        default: d.xml += "<" + name + (r.chance(10) ? " a='&amp;'>" : ">") + value_list(r, s, true, set);
      }
      d.xml += "</" + name + ">" + (r.chance(20) ? "<!-- note -->\n" : "");
    }
    d.xml += is_sbs ? "</sbs>" : "</peq>";
  }
  d.xml += root ? "</kafxsp>" : "</kafxsp_v2>";
  d.root_end = d.xml.size();
  d.xml += r.chance(50) ? "\n" : "";
  if (root) { // every sbs before every peq
    d.set = sbs;
    d.set.insert(d.set.end(), peq.begin(), peq.end());
  }
  return d;
}

// Every generated document loads to exactly its record; a cut inside the
// root is refused and changes nothing; random edits and markup soup never
// crash, and afterwards the chain holds the record (unchanged on -1).
TEST_F(SpeakerConfig, RandomDocumentsCutsAndEdits) {
  static const char* const kSoup[] = {"<kafxsp>", "</kafxsp>", "<sbs>", "</sbs>", "<gain>", "</gain>", "1;2",
                                      "<!--", "-->", "<![CDATA[", "]]>", "&#x31;", "&#x", "&", "\"", "=", " a=",
                                      "<?xml ", "?>", "/>", ">", "<", "</", "<!DOCTYPE x>", "<a>", "x1;", "\xC3"};
  const int soup_last = static_cast<int>(std::size(kSoup)) - 1;
  Gen r{std::mt19937(20240611)};
  LogCapture quiet;
  int outcomes[2] = {0, 0};
  for (int c = 0; c < 700; ++c) {
    reset(r.g);
    const GenDoc d = generate(r);
    const std::string what = "case " + std::to_string(c) + ":\n" + d.xml.substr(0, 3000);
    Flat want = start;
    for (auto [i, v] : d.set) want[static_cast<size_t>(i)] = v;
    ASSERT_EQ(load(d.xml), 0) << what;
    ASSERT_EQ(flat(h->params), want) << what;
    ASSERT_EQ(chain_state(chain()), chained(want)) << what;

    restore();
    const size_t cut = static_cast<size_t>(r.uni(0, static_cast<int>(d.xml.size())));
    ASSERT_EQ(load(d.xml.substr(0, cut)), cut >= d.root_end ? 0 : -1) << "cut at " << cut << ", " << what;
    ASSERT_EQ(flat(h->params), cut >= d.root_end ? want : start) << "cut at " << cut << ", " << what;

    restore();
    std::string bytes = c % 4 ? d.xml : "<kafxsp>" + times(kSoup[r.uni(0, soup_last)], r.uni(1, 3));
    for (int e = r.uni(1, c % 4 ? 5 : 60); e > 0 && !bytes.empty(); --e) {
      const size_t at = static_cast<size_t>(r.uni(0, static_cast<int>(bytes.size()) - 1));
      switch (r.uni(0, 4)) {
        case 0: bytes[at] = static_cast<char>(r.uni(1, 255)); break;
        case 1: bytes.erase(at, static_cast<size_t>(r.uni(1, 10))); break;
        case 2: bytes.insert(at, bytes.substr(static_cast<size_t>(r.uni(0, static_cast<int>(at))), 40)); break;
        default: bytes.insert(at, kSoup[r.uni(0, soup_last)]);
      }
    }
    const int rc = load(bytes);
    ASSERT_TRUE(rc == 0 || rc == -1);
    ++outcomes[rc == 0];
    ASSERT_EQ(flat(h->params), rc == 0 ? flat(h->params) : start) << bytes;
    ASSERT_EQ(chain_state(chain()), chained(flat(h->params))) << bytes;
  }
  EXPECT_GT(outcomes[0], 100); // both paths were taken
  EXPECT_GT(outcomes[1], 100);
}

// ---------------------------------------------------------------------------
// The shipped example and the `kafx` tool (<build>/tools/kafx, next to
// <build>/tests/test_speaker), run as a child process.

struct Band { std::string type; double freq = 0, q = 0, gain_db = 0; };

// The design statements the equalizer's response depends on.
struct Design {
  double peq_gain_db[2] = {0, 0};
  std::vector<Band> bands[2];
};

Design read_design(const std::string& path) {
  Design d;
  std::istringstream in(slurp(path));
  for (std::string line; std::getline(in, line);) {
    std::istringstream w(line.substr(0, line.find('#')));
    std::string key, side;
    Band b;
    w >> key;
    EXPECT_NE(key, "rate") << "the test measures at 48 kHz";
    if (key == "peq_gain" && w >> d.peq_gain_db[0] && !(w >> d.peq_gain_db[1])) d.peq_gain_db[1] = d.peq_gain_db[0];
    if (key == "band" && w >> side >> b.type >> b.freq >> b.q && !(w >> b.gain_db)) b.gain_db = 0;
    for (int s = 0; s < 2 && key == "band"; ++s)
      if (side == "both" || side == (s ? "right" : "left")) d.bands[s].push_back(b);
  }
  return d;
}

// |H| in dB of one band at f: the analog prototype at s = j * W, where
// W = tan(pi f / fs) / tan(pi f0 / fs) puts f0 at the prototype's unit frequency.
double band_db(const Band& b, double f) {
  using C = std::complex<double>;
  const C s(0.0, std::tan(kPi * f / 48000) / std::tan(kPi * b.freq / 48000));
  const double A = std::pow(10.0, b.gain_db / 40.0), Q = b.q, k = std::sqrt(A) / Q;
  C h;
  if (b.type == "peak") h = (s * s + s * (A / Q) + 1.0) / (s * s + s / (A * Q) + 1.0);
  else if (b.type == "lowpass") h = 1.0 / (s * s + s / Q + 1.0);
  else if (b.type == "highpass") h = s * s / (s * s + s / Q + 1.0);
  else if (b.type == "lowshelf") h = A * (s * s + k * s + A) / (A * s * s + k * s + 1.0);
  else if (b.type == "highshelf") h = A * (A * s * s + k * s + 1.0) / (s * s + k * s + A);
  else ADD_FAILURE() << "unknown band type " << b.type;
  return 20.0 * std::log10(std::abs(h));
}

// Gain in dB of the chain at f (left, right): the fundamental of the settled
// output against the input sine's amplitude. One second at 48 kHz holds whole
// periods of any whole-hertz frequency, so other components cancel.
void measure(kedo_speaker_boost_t* c, double f, double out_db[2]) {
  constexpr int kBlock = 240, kSettle = 50 * kBlock, kMeasure = 200 * kBlock;
  constexpr double kAmplitude = 2097152.0; // -12 dBFS of the 24-bit working range
  std::complex<double> sum[2];
  int buf[2][kBlock];
  for (int n0 = 0; n0 < kSettle + kMeasure; n0 += kBlock) {
    for (int i = 0; i < kBlock; ++i)
      buf[0][i] = buf[1][i] = static_cast<int>(std::lround(kAmplitude * std::sin(2 * kPi * f * (n0 + i) / 48000)));
    kedo_speaker_boost_core_process(c, buf[0], buf[1], kBlock);
    for (int i = 0; n0 >= kSettle && i < kBlock; ++i)
      for (int s = 0; s < 2; ++s) sum[s] += 1.0 * buf[s][i] * std::polar(1.0, -2 * kPi * f * (n0 + i) / 48000);
  }
  for (int s = 0; s < 2; ++s) out_db[s] = 20.0 * std::log10(std::abs(sum[s]) / (kAmplitude * kMeasure / 2));
}

TEST_F(SpeakerConfig, ExampleEqualizerHasTheDesignedResponse) {
  const Design design = read_design(source("examples/speaker_design.txt"));
  ASSERT_FALSE(design.bands[0].empty());
  ASSERT_EQ(kafx_speaker_boost_loadconfig(h, source("examples/speaker.xml").c_str()), 0);
  kedo_speaker_boost_sbs_setstatus(chain(), 0); // the equalizer and the (neutral) balance only
  std::vector<double> freqs = {40, 60, 100, 150, 250, 500, 1000, 1500, 2000, 5000, 7000, 12000, 15000, 20000, 22000};
  for (const Band& b : design.bands[0]) freqs.push_back(b.freq);
  for (double f : freqs) {
    double got[2];
    measure(chain(), f, got);
    for (int side = 0; side < 2; ++side) {
      double want = design.peq_gain_db[side];
      for (const Band& b : design.bands[side]) want += band_db(b, f);
      EXPECT_NEAR(got[side], want, 0.01) << "side " << side << " at " << f << " Hz";
    }
  }
}

fs::path tool() {
  std::error_code ec;
  const fs::path self = fs::read_symlink("/proc/self/exe", ec);
  return ec ? fs::path() : self.parent_path().parent_path() / "tools" / "kafx";
}

struct ToolRun { int code = -1; std::string out; }; // exit code, standard output

ToolRun kafx(const std::string& args) {
  ToolRun r;
  FILE* p = popen(("'" + tool().string() + "' " + args + " 2>/dev/null").c_str(), "r");
  char buf[1024];
  for (size_t n; p != nullptr && (n = fread(buf, 1, sizeof buf, p)) > 0;) r.out.append(buf, n);
  const int status = p != nullptr ? pclose(p) : -1;
  r.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return r;
}

TEST_F(SpeakerConfig, ToolRegeneratesTheExampleAndRefusesBadDesigns) {
  if (!fs::exists(tool())) GTEST_SKIP() << "kafx tool not built at " << tool();
  const ToolRun r = kafx("speaker-design '" + source("examples/speaker_design.txt") + "'");
  ASSERT_EQ(r.code, 0);
  EXPECT_EQ(r.out, slurp(source("examples/speaker.xml")))
      << "examples/speaker.xml is stale: regenerate it with kafx speaker-design";
  EXPECT_EQ(kafx("speaker-design").code, 2);
  for (const char* bad : {"band both notch 1000 1 3\n", "band both peak 30000 1 3\n", "limiter low both 0 5 -1\n"}) {
    write("bad.txt", bad);
    EXPECT_EQ(kafx("speaker-design" + q("bad.txt")).code, 1) << bad;
  }
}

// A small design with the sides apart, generated and loaded by the library:
// the dB values become Q13 gains and 16-bit limiter thresholds.
TEST_F(SpeakerConfig, ToolDesignConvertsDecibels) {
  if (!fs::exists(tool())) GTEST_SKIP();
  write("d.txt", "version t 1\nsbs on\nharmonic_gain 0 -6.0206\nlimiter high right 1 4 -20 6.0206 -138\n"
                 "peq off\nband right highpass 100 0.7071\n");
  ASSERT_EQ(kafx("speaker-design" + q("d.txt") + " -o" + q("d.xml")).code, 0);
  kafx_sp_params_t p{};
  ASSERT_EQ(kafx_speaker_boost_params_load_config(&p, path("d.xml").c_str()), 0);
  const Flat f = flat(p);
  using V = std::vector<int32_t>;
  auto at = [&](size_t i, size_t n) { return V(&f[i], &f[i] + n); };
  EXPECT_EQ(at(0, 3), (V{1, 8192, 4096}));              // sbs on; 0 dB; -6.0206 dB is one half
  EXPECT_EQ(at(35, 5), (V{1, 4, 3277, 16384, 2}));      // high right: 32767 / 10; twice 8192; floor of 2
  EXPECT_EQ(at(15, 5), (V{0, 5, 32767, 8192, 256}));    // high left as the limiters start
  EXPECT_EQ(at(45, 1), (V{0}));                         // peq off
  EXPECT_EQ(at(48, 6), (V{0, 268435456, 0, 0, 0, 0})); // unused band: switched-off pass-through
  EXPECT_EQ(f[108], 1);
  EXPECT_EQ(f[109], f[111]); // high-pass: b0 = b2 = -b1 / 2, no gain at DC
  EXPECT_NEAR(f[109] * 2.0 + f[110], 0.0, 2.0);
  EXPECT_EQ(f[114], 0);
}

TEST_F(SpeakerConfig, ToolReportsElementsAndFailures) {
  if (!fs::exists(tool())) GTEST_SKIP();
  write("g.xml", "<kafxsp><sbs><gain>2000;zz;5</gain><bogus>1</bogus><drc_param_left2>1;2;3</drc_param_left2>"
                 "</sbs><sbs><gain>7</gain></sbs></kafxsp>\n");
  write("b.xml", "<kafxsp><sbs></kafxsp>");
  EXPECT_EQ(kafx("speaker-config" + q("g.xml")).code, 0);
  EXPECT_EQ(kafx("speaker-config").code, 2);
  const ToolRun r = kafx("speaker-config '" + source("examples/speaker.xml") + "'" + q("g.xml") + q("b.xml"));
  EXPECT_EQ(r.code, 1);
  for (const char* want : {"every member of the record is set by this file", "load: ok",
                           "token 2 'zz' is not a 32-bit hexadecimal number: sbs.gain[right] [2] unchanged",
                           "1 surplus token ignored", "<bogus>: unknown in <sbs>, ignored",
                           "missing tokens: [18..19] unchanged", "overwrites values set earlier in the file: [1]",
                           "drc_high_left:\t 0x1 0x2 0x3 0x0 0x0", "load: FAILED (-1): not well-formed XML"})
    EXPECT_NE(r.out.find(want), std::string::npos) << want << "\n" << r.out;
}

} // namespace
