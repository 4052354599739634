// Speaker configuration: files and strings reach the record and the chain; refused files change nothing; log
// lines are exact; seeded cuts and edits load all or nothing; examples/speaker.xml matches its design. (The
// tool's speaker-design and speaker-config commands: tests/host/kafx_tuning_tool_test.cpp.)
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <complex>
#include <filesystem>
#include <fstream>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "kafx_proc/speaker_boost.h"
#include "support/log_capture.h"
#include "support/source_files.h"

namespace {

namespace fs = std::filesystem;
using kafx_test::LogCapture;
using kafx_test::repeat;
using kafx_test::slurp;
using kafx_test::source_file;
using Flat = std::array<int32_t, 168>; // the record as its 168 members (the void* entry points take either)
using Changes = std::vector<std::pair<int, int32_t>>;
using Lines = std::vector<std::string>;
constexpr double kPi = 3.14159265358979323846;

Flat flat(const kafx_sp_params_t& p) { return std::bit_cast<Flat>(p); }

// The chain's settings read back through its getters, laid out like the record (4: the chain's channel count).
Flat chain_state(kedo_speaker_boost_t* c) {
  const std::pair<size_t, void (*)(kedo_speaker_boost_t*, int*)> words[] = {
      {0, kedo_speaker_boost_sbs_getstatus}, {1, kedo_speaker_boost_sbs_get_nld_gain_left},
      {2, kedo_speaker_boost_sbs_get_nld_gain_right}, {3, kedo_speaker_boost_cb_get_channel_ration},
      {45, kedo_speaker_boost_p_eq_getstatus}, {46, kedo_speaker_boost_p_eq_get_gain_left},
      {47, kedo_speaker_boost_p_eq_get_gain_right}};
  void (*const drc[8])(kedo_speaker_boost_t*, drc_param_t*) = {
      kedo_speaker_boost_sbs_get_drc_low_left,  kedo_speaker_boost_sbs_get_drc_mid_left,
      kedo_speaker_boost_sbs_get_drc_high_left, kedo_speaker_boost_sbs_get_drc_full_left,
      kedo_speaker_boost_sbs_get_drc_low_right, kedo_speaker_boost_sbs_get_drc_mid_right,
      kedo_speaker_boost_sbs_get_drc_high_right, kedo_speaker_boost_sbs_get_drc_full_right};
  Flat f{};
  for (auto [i, get] : words) get(c, &f[i]);
  f[4] = c->channel_num;
  for (size_t i = 0; i < 8; ++i) drc[i](c, reinterpret_cast<drc_param_t*>(&f[5 + 5 * i]));
  kedo_speaker_boost_p_eq_getparameter_left(c, reinterpret_cast<int(*)[6]>(&f[48]));
  kedo_speaker_boost_p_eq_getparameter_right(c, reinterpret_cast<int(*)[6]>(&f[108]));
  return f;
}

Flat chained(Flat f) { // what the chain holds of a record: the limiters keep their expander threshold >= 2
  for (size_t i = 9; i < 45; i += 5) f[i] = std::max(2, f[i]);
  return f;
}

Flat with(Flat f, const Changes& set) {
  for (auto [i, v] : set) f[static_cast<size_t>(i)] = v;
  return f;
}

std::string doc(const std::string& body) { return "<?xml version=\"1.0\"?>\n<kafxsp>\n" + body + "</kafxsp>\n"; }

// A stereo 48 kHz 16-bit front end and a private scratch folder.
class SpeakerConfig : public ::testing::Test {
 protected:
  SpeakerConfig() { if (mkdtemp(dir.data()) == nullptr) ADD_FAILURE() << "mkdtemp failed for " << dir; }
  ~SpeakerConfig() override {
    kafx_speaker_boost_deinit(h);
    std::error_code ec;
    fs::remove_all(dir, ec);
  }
  std::string path(const std::string& name) const { return dir + "/" + name; }
  std::string write(const std::string& name, const std::string& bytes) const {
    std::ofstream(path(name), std::ios::binary | std::ios::trunc) << bytes;
    return path(name);
  }
  kedo_speaker_boost_t* chain() { return &h->chain; }
  void reset() { // a random record that the chain stores unchanged, applied; then the chain is moved off it
    for (size_t i = 0; i < start.size(); ++i)
      start[i] = static_cast<int32_t>(i % 5 == 4 && i > 4 && i < 45 ? 2 + g() % 0x7ffffffdu : g());
    kafx_speaker_boost_params_update(h, start.data());
    kedo_speaker_boost_sbs_set_nld_gain_left(chain(), 1);
    kedo_speaker_boost_p_eq_setstatus(chain(), 1234);
  }
  int load(const std::string& bytes) { return kafx_speaker_boost_loadconfig(h, write("c.xml", bytes).c_str()); }
  bool expect_state(const Flat& want, const std::string& what, bool applied = true) { // record and chain
    EXPECT_EQ(flat(h->params), want) << what;
    EXPECT_EQ(chain_state(chain()), applied ? chained(want) : with(chained(want), {{1, 1}, {45, 1234}})) << what;
    return !HasFailure();
  }

  std::string dir = ::testing::TempDir() + "kafx_spcfg_XXXXXX";
  kafx_speaker_boost_t* h = static_cast<kafx_speaker_boost_t*>(kafx_speaker_boost_init(2, 48000, 1));
  Flat start{};
  std::mt19937 g{20240611};
};

struct DocCase { std::string what, xml; Changes set; };

// Value lists are ';'-separated "%x" numbers: white space, a sign ('-' negates modulo 2^32), 0x and leading
// zeros are allowed, trailing characters ignored; an empty or malformed token, one wider than 32 bits or a
// missing one keeps its member; surplus tokens are ignored.
std::vector<DocCase> documents() {
  const std::pair<std::string, std::optional<uint32_t>> tokens[] = {
      {"7fff", 0x7fff}, {"FFFFFFFF", 0xffffffffu}, {"0x1C85", 0x1c85}, {"0X0000000000000abcdef", 0xabcdef},
      {" \r\n\t2a", 0x2a}, {"2b\t", 0x2b}, {"12zz", 0x12}, {"12-1", 0x12}, {"-1", 0xffffffffu},
      {"-80000000", 0x80000000u}, {"+10", 0x10}, {"-0", 0}, {"&#x31;0", 0x10}, {"&#50;", 2}, {"", {}},
      {"zz", {}}, {"-x", {}}, {"100000000", {}}, {"-100000000", {}}, {"1" + std::string(40000, 'f'), {}}};
  std::string lfilter;
  Changes set = {{0, 5}, {108, 1}, {109, 0xa}};
  for (size_t k = 0; k < std::size(tokens); ++k) {
    lfilter += (k ? ";" : "") + tokens[k].first;
    if (tokens[k].second) set.push_back({48 + static_cast<int>(k), static_cast<int32_t>(*tokens[k].second)});
  }
  return {
      {"gain, a surplus value", doc("<sbs><gain>2000;1000;5</gain></sbs>"), {{1, 8192}, {2, 4096}}},
      {"3 values", doc("<sbs><drc_param_left2>3;7;7fff</drc_param_left2></sbs>"), {{15, 3}, {16, 7}, {17, 0x7fff}}},
      {"later sections win", doc("<peq><enable>1</enable><gain>1111;2222</gain></peq><sbs><channel_ration>10"
                                 "</channel_ration></sbs><peq><gain>3333</gain></peq><sbs><channel_ration>20"
                                 "</channel_ration><drc_param_right3>;;;;9</drc_param_right3></sbs>"),
       {{45, 1}, {46, 0x3333}, {47, 0x2222}, {3, 0x20}, {44, 9}}},
      {"skipped elements", doc("<sbs><gains>1;2</gains><Enable>1</Enable><gain><!-- l;r -->7;8</gain><channel_num/>"
                               "<Lfilter>1;2;3</Lfilter><x><enable>1</enable></x><drc_param_left4>1</drc_param_left4>"
                               "</sbs><peq><channel_ration>5</channel_ration></peq><group><sbs><enable>1</enable>"
                               "</sbs></group><SBS><enable>1</enable></SBS>"), {}},
      {"no root: nothing parsed, record applied", "<config><sbs><gain>1;1</gain></sbs></config>", {}},
      {"64 levels", "<kafxsp><sbs><gain>2;3</gain>" + repeat("<n>", 62) + repeat("</n>", 62) + "</sbs></kafxsp>",
       {{1, 2}, {2, 3}}},
      {"tokens and markup", "\xEF\xBB\xBF<?xml version=\"1.0\"?>\n<!-- t --><kafxsp><peq><Lfilter>" + lfilter +
           "</Lfilter><!-- x --><Rfilter a='&amp;'><![CDATA[1;A]]></Rfilter></peq><version>1</version>"
           "<sbs><enable>5</enable></sbs></kafxsp>\n", set}};
}

// Anything but one well-formed document of at most 1 MiB in a regular file.
TEST_F(SpeakerConfig, RefusedFilesChangeNothing) {
  reset();
  const std::string good = doc("<sbs><enable>1</enable><gain>2000;1000</gain></sbs>"), fifo = path("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  std::string attributes = "<kafxsp";
  for (int i = 0; i < 100; ++i) attributes += " a" + std::to_string(i) + "='0'";
  const std::pair<const char*, std::string> files[] = {
      {"missing", path("missing.xml")}, {"fifo", fifo}, // refused, not waited on
      {"longer than its size", "/proc/self/status"}, {"empty", write("empty", "")},
      {"no element", write("text", "gain 2000;1000\n")}, {"truncated", write("trunc", good.substr(0, good.size() - 4))},
      {"mismatched", write("mismatch", doc("<sbs><gain>1;1</gian></sbs>"))},
      {"binary", write("bin", std::string("\x7f" "ELF\x02\x01\x01\0\0\0<kafxsp/>", 19))},
      {"not UTF-8", write("latin1", doc("<version>caf\xe9</version>"))}, {"open comment", write("c", good + "<!-- x")},
      {"two roots", write("two", good + "<kafxsp/>")}, {"trailing text", write("trail", good + "junk")},
      {"65 levels", write("deep", "<kafxsp><sbs>" + repeat("<a>", 63) + repeat("</a>", 63) + "</sbs></kafxsp>")},
      // A character reference runs to the next ';' and swallows the end tag.
      {"hidden nesting", write("hidden", "<kafxsp>" + repeat("<a>&#x</a>x1;", 40000) + "</kafxsp>")},
      {"hidden in quotes", write("quoted", "<kafxsp>" + repeat("<a v=\"&#x\"/>x1;\">", 40000) + "</kafxsp>")},
      {"attributes", write("attr", attributes + "/>")},
      {"over 1 MiB", write("huge", "<kafxsp><version>" + std::string((1u << 20) + 10, 'a') + "</version></kafxsp>")}};
  for (const auto& [what, file] : files) {
    LogCapture log;
    EXPECT_EQ(kafx_speaker_boost_loadconfig(h, file.c_str()), -1) << what;
    expect_state(start, what, false);
    EXPECT_EQ(log.messages(), (Lines{"kafx_speaker_boost_loadconfig: " + file, "LoadAudioConfig fail "})) << what;
    EXPECT_TRUE(log.all().size() == 2 && log.all()[1].priority == ANDROID_LOG_ERROR) << what;
  }
}

// 45 sbs values (a 46th is ignored) and 123 peq values land at their indices; empty, malformed and
// out-of-range tokens keep the member. Null arguments do nothing (-1 where an int is returned); no log line.
TEST_F(SpeakerConfig, StringsFillTheirPartOnlyAndNullsDoNothing) {
  Flat p, want;
  for (size_t i = 0; i < 168; ++i) p[i] = want[i] = -1000 - static_cast<int32_t>(i);
  std::string sbs = "1,8192,8192,0,2", peq;
  for (int i = 0; i < 40; ++i) (sbs += ',') += std::to_string(100 + i);
  for (int i = 0; i < 123; ++i) (i ? peq += ',' : peq) += std::to_string(i * 3 - 7);
  LogCapture log;
  kafx_speaker_boost_parse_sbs_params(p.data(), (sbs + ",555").c_str());
  for (size_t i = 0; i < 45; ++i) want[i] = i < 5 ? std::array{1, 8192, 8192, 0, 2}[i] : static_cast<int32_t>(95 + i);
  EXPECT_EQ(p, want);
  kafx_speaker_boost_parse_peq_params(p.data(), peq.c_str());
  for (size_t i = 0; i < 123; ++i) want[45 + i] = static_cast<int32_t>(i * 3) - 7;
  EXPECT_EQ(p, want);
  kafx_speaker_boost_parse_peq_params(p.data(), "9,,x, 12,2147483648,-2147483648,+7z,-2147483649,2147483647,"
                                                "99999999999999999999"); // beyond 64 bits too
  want[45] = 9, want[48] = 12, want[50] = INT32_MIN, want[51] = 7, want[53] = INT32_MAX;
  kafx_speaker_boost_parse_sbs_params(p.data(), "");
  EXPECT_EQ(p, want);
  const std::string file = write("n.xml", doc("<sbs><enable>1</enable></sbs>"));
  for (void* hd : {static_cast<void*>(nullptr), static_cast<void*>(h)}) { // one of each pair null
    void *rec = hd ? p.data() : nullptr, *other = hd ? nullptr : p.data();
    const char* text = hd ? nullptr : file.c_str();
    EXPECT_EQ(kafx_speaker_boost_loadconfig(hd, text) + kafx_speaker_boost_params_load_config(rec, text), -2);
    for (auto update : {kafx_speaker_boost_params_update, kafx_speaker_boost_update_sbs_params,
                        kafx_speaker_boost_update_peq_params})
      update(hd, other);
    for (auto parse : {kafx_speaker_boost_parse_sbs_params, kafx_speaker_boost_parse_peq_params}) parse(rec, text);
  }
  for (auto release : {kafx_speaker_boost_dump_params, kafx_speaker_boost_params_load_deinit}) release(nullptr);
  EXPECT_EQ(p, want);
  EXPECT_TRUE(log.all().empty() && flat(h->params) == Flat{});
}

// Tag "kafx_sp_wrapper", debug priority, the dump's tab counts as they are.
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
  // A separate record (allocated zeroed) loads alone; params_update takes the handle's own record too.
  auto* sep = static_cast<kafx_sp_params_t*>(kafx_speaker_boost_params_load_init());
  const std::string s = write("s.xml", doc("<version/><sbs><enable>3</enable></sbs>"));
  log.clear();
  ASSERT_EQ(kafx_speaker_boost_params_load_config(sep, s.c_str()), 0);
  EXPECT_EQ(log.messages(), (Lines{"kafx_speaker_boost_params_load_config: " + s, "kafxsp version: ",
                                   "parse sbs parameters:", "parse peq parameters:"}));
  EXPECT_EQ(flat(*sep), (Flat{3}));
  kafx_speaker_boost_params_update(h, sep);
  kafx_speaker_boost_params_load_deinit(sep);
  Flat want{3};
  h->params.peq.gain[0] = want[46] = 4321;
  kafx_speaker_boost_params_update(h, &h->params);
  expect_state(want, "own record applied");

  Flat o; // another record: partial updates apply one part of it, the stored record stays
  for (size_t i = 0; i < 168; ++i) o[i] = static_cast<int32_t>(i);
  o[1] = 0x2000, o[2] = -1, o[3] = -77, o[49] = 0x10000000, o[52] = -0x100, o[167] = 0x7fffffff;
  log.clear();
  kafx_speaker_boost_update_sbs_params(h, o.data());
  EXPECT_EQ(log.messages(), (Lines{"kafx_speaker_boost_update_sbs_params", "status: 0",
                                   "nld_gain: 0x2000 0xffffffff", "channel_ration: -77", "channel_num: 4"}));
  Flat mixed = chained(want);
  std::copy(o.begin(), o.begin() + 45, mixed.begin());
  EXPECT_EQ(chain_state(chain()), mixed);
  log.clear();
  kafx_speaker_boost_update_peq_params(h, o.data());
  EXPECT_EQ(log.messages(), (Lines{"kafx_speaker_boost_update_peq_params", "status: 45", "peq_gain: 0x2e 0x2f"}));
  EXPECT_EQ(chain_state(chain()), o);
  EXPECT_EQ(flat(h->params), want);

  log.clear();
  kafx_speaker_boost_dump_params(o.data());
  const Lines m = log.messages();
  ASSERT_EQ(m.size(), 39u);
  EXPECT_EQ(Lines(m.begin(), m.begin() + 19),
            (Lines{"kafx_speaker_boost_dump_params", "sbs params dump:", "enable: 0", "gain: 0x2000 0xffffffff",
                   "channel_ration: -77", "channel_num: 4", "drc_low_left:\t\t 0x5 0x6 0x7 0x8 0x9",
                   "drc_mid_left:\t\t 0xa 0xb 0xc 0xd 0xe", "drc_high_left:\t 0xf 0x10 0x11 0x12 0x13",
                   "drc_full_left:\t 0x14 0x15 0x16 0x17 0x18", "drc_low_right:\t 0x19 0x1a 0x1b 0x1c 0x1d",
                   "drc_mid_right:\t 0x1e 0x1f 0x20 0x21 0x22", "drc_high_right:\t 0x23 0x24 0x25 0x26 0x27",
                   "drc_full_right:\t 0x28 0x29 0x2a 0x2b 0x2c", "peq params dump:", "enable: 45", "gain: 0x2e 0x2f",
                   "Lfilter params:", "band[1]:\t 0x00000030 0x10000000 0x00000032 0x00000033 0xffffff00 0x00000035"}));
  EXPECT_EQ(m[27], "band[10]:\t 0x00000066 0x00000067 0x00000068 0x00000069 0x0000006a 0x0000006b");
  EXPECT_EQ(m[28], "Rfilter params:");
  EXPECT_EQ(m[38], "band[10]:\t 0x000000a2 0x000000a3 0x000000a4 0x000000a5 0x000000a6 0x7fffffff");
  for (const auto& l : log.all()) EXPECT_TRUE(l.priority == ANDROID_LOG_DEBUG && l.tag == "kafx_sp_wrapper");
}

// Each document loads over a random record with the chain moved off it: only the listed members change and
// the whole record is applied again. Then at random: a cut is refused and changes nothing (the chain stays
// off) unless it is past the root's end; edits and markup soup never crash and load all or nothing.
TEST_F(SpeakerConfig, DocumentsCutsAndRandomEdits) {
  static const char* const kSoup[] = {"<kafxsp>", "</kafxsp>", "<sbs>", "</sbs>", "<gain>", "</gain>", "1;2",
                                      "<!--", "-->", "<![CDATA[", "]]>", "&#x31;", "&#x", "&", "\"", "=", " a=",
                                      "<?xml ", "?>", "/>", ">", "<", "</", "<!DOCTYPE x>", "<a>", "x1;", "\xC3"};
  const std::vector<DocCase> docs = documents();
  auto uni = [this](size_t lo, size_t hi) { return std::uniform_int_distribution<size_t>(lo, hi)(g); };
  LogCapture quiet;
  int outcomes[2] = {0, 0};
  for (size_t c = 0; c < 700; ++c) {
    const DocCase& d = docs[c % docs.size()];
    reset();
    const size_t cut = c < docs.size() ? d.xml.size() : uni(0, d.xml.size()); // whole, at first
    const bool whole = cut > d.xml.find_last_of('>'); // the root's end tag included
    ASSERT_EQ(load(d.xml.substr(0, cut)), whole ? 0 : -1) << d.what << " cut at " << cut;
    ASSERT_TRUE(expect_state(whole ? with(start, d.set) : start, d.what + " cut at " + std::to_string(cut), whole));

    kafx_speaker_boost_params_update(h, start.data()); // back to the start
    std::string bytes = c % 4 ? d.xml : "<kafxsp>" + repeat(kSoup[uni(0, std::size(kSoup) - 1)], int(uni(1, 3)));
    for (size_t e = uni(1, c % 4 ? 2 : 60); e > 0 && !bytes.empty(); --e) {
      const size_t at = uni(0, bytes.size() - 1);
      switch (uni(0, 4)) {
        case 0: bytes[at] = static_cast<char>(uni(1, 255)); break;
        case 1: bytes.erase(at, uni(1, 10)); break;
        case 2: bytes.insert(at, bytes.substr(uni(0, at), 40)); break;
        default: bytes.insert(at, kSoup[uni(0, std::size(kSoup) - 1)]);
      }
    }
    const int rc = load(bytes);
    ASSERT_TRUE(rc == 0 || rc == -1);
    ++outcomes[rc == 0];
    ASSERT_TRUE(expect_state(rc == 0 ? flat(h->params) : start, bytes));
  }
  EXPECT_TRUE(outcomes[0] > 100 && outcomes[1] > 50) << outcomes[0] << " refused, " << outcomes[1] << " loaded";
}

struct Band { std::string side, type; double freq = 0, q = 0, gain_db = 0; };

// The design statements the equalizer's response depends on: its bands and its gain in dB (left, right).
std::vector<Band> read_design(const std::string& path, double gain_db[2]) {
  std::vector<Band> bands;
  std::istringstream in(slurp(path));
  for (std::string line, key; std::getline(in, line); key.clear()) {
    std::istringstream w(line.substr(0, line.find('#')));
    Band b;
    w >> key;
    EXPECT_NE(key, "rate") << "the test measures at 48 kHz";
    if (key == "peq_gain" && w >> gain_db[0] && !(w >> gain_db[1])) gain_db[1] = gain_db[0];
    if (key == "band" && w >> b.side >> b.type >> b.freq >> b.q && (w >> b.gain_db || true)) bands.push_back(b);
  }
  return bands;
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

// Gain in dB of the chain at f (left, right): the fundamental of the settled output against the input sine's
// amplitude. One second at 48 kHz holds whole periods of any whole-hertz frequency, so other components cancel.
std::array<double, 2> measure(kedo_speaker_boost_t* c, double f) {
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
  auto db = [&](int s) { return 20.0 * std::log10(std::abs(sum[s]) / (kAmplitude * kMeasure / 2)); };
  return {db(0), db(1)};
}

TEST_F(SpeakerConfig, ExampleEqualizerHasTheDesignedResponse) {
  double gain_db[2] = {0, 0};
  const std::vector<Band> bands = read_design(source_file("examples/speaker_design.txt"), gain_db);
  ASSERT_EQ(kafx_speaker_boost_loadconfig(h, source_file("examples/speaker.xml").c_str()), 0);
  kedo_speaker_boost_sbs_setstatus(chain(), 0); // the equalizer and the (neutral) balance only
  std::vector<double> freqs = {40, 60, 100, 150, 250, 500, 1000, 1500, 2000, 5000, 7000, 12000, 15000, 20000, 22000};
  for (const Band& b : bands) freqs.push_back(b.freq);
  for (double f : freqs) {
    const std::array<double, 2> got = measure(chain(), f);
    for (int side = 0; side < 2; ++side) {
      double want = gain_db[side];
      for (const Band& b : bands) want += b.side == "both" || b.side == (side ? "right" : "left") ? band_db(b, f) : 0;
      EXPECT_NEAR(got[side], want, 0.01) << "side " << side << " at " << f << " Hz";
    }
  }
}

} // namespace
