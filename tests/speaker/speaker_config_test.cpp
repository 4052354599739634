// Speaker configuration: the XML file and parameter strings reach the record
// and the chain (read back through the chain's getters), the value-list rules
// (missing, empty, surplus, malformed and too wide tokens), the log lines of
// loading, applying and dumping, and the refusal of files that are not a
// well-formed, reasonably sized document (nothing applied then).
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "kafx_proc/speaker_boost.h"
#include "speaker/speaker_config_parse.h"
#include "speaker_config_test_util.h"
#include "support/log_capture.h"

namespace {

using namespace spcfg_test;
using kafx_test::LogCapture;

std::string doc(const std::string& body) { return "<?xml version=\"1.0\"?>\n<kafxsp>\n" + body + "</kafxsp>\n"; }

// A handle whose record and chain hold `start` (applied through params_update).
void preset(SpHandle& sp, const Flat& start) {
  kafx_sp_params_t r = record(start);
  kafx_speaker_boost_params_update(sp.h, &r);
  ASSERT_EQ(flat(sp.h->params), start);
  ASSERT_EQ(chain_state(sp.chain()), start);
}

Flat seeded(unsigned seed) {
  std::mt19937 rng(seed);
  return random_flat(rng);
}

TEST(SpeakerConfigValues, HexTokensScanLikePercentX) {
  using kafx::spcfg::scan_hex32;
  struct Case {
    const char* text;
    bool ok;
    uint32_t value;
  };
  const Case cases[] = {
      {"2000", true, 0x2000},        {"  1f \n", true, 0x1f},        {"0x7fffffff", true, 0x7fffffff},
      {"0XAbC", true, 0xabc},        {"ffffffff", true, 0xffffffff}, {"-1", true, 0xffffffff},
      {"+10", true, 0x10},           {"-0x10", true, 0xfffffff0},    {"12zz", true, 0x12},
      {"0x", true, 0},               {"0xg", true, 0},               {"000000000000abc", true, 0xabc},
      {"", false, 0},                {"   ", false, 0},              {"zz", false, 0},
      {"-", false, 0},               {"x1", false, 0},               {"100000000", false, 0},
      {"123456789abcdef0", false, 0}, {"-100000000", false, 0},
  };
  for (const Case& c : cases) {
    int32_t v = 0x5a5a5a5a;
    EXPECT_EQ(scan_hex32(c.text, &v), c.ok) << "'" << c.text << "'";
    EXPECT_EQ(static_cast<uint32_t>(v), c.ok ? c.value : 0x5a5a5a5au) << "'" << c.text << "'";
  }
}

TEST(SpeakerConfigValues, DecimalTokensScanLikePercentD) {
  using kafx::spcfg::scan_dec32;
  struct Case {
    const char* text;
    bool ok;
    int32_t value;
  };
  const Case cases[] = {
      {"8192", true, 8192},        {" -5", true, -5},           {"+7x", true, 7},
      {"2147483647", true, INT32_MAX}, {"-2147483648", true, INT32_MIN}, {"0010", true, 10},
      {"2147483648", false, 0},    {"-2147483649", false, 0},   {"99999999999999999999", false, 0},
      {"", false, 0},              {"0x10", true, 0},           {"a1", false, 0},
      {"- 1", false, 0},
  };
  for (const Case& c : cases) {
    int32_t v = 12345;
    EXPECT_EQ(scan_dec32(c.text, &v), c.ok) << "'" << c.text << "'";
    EXPECT_EQ(v, c.ok ? c.value : 12345) << "'" << c.text << "'";
  }
}

TEST(SpeakerConfigValues, TokenPlacesFollowTheSeparators) {
  using kafx::spcfg::read_hex_list;
  int32_t m[4] = {-1, -2, -3, -4};
  // Empty tokens keep their place; the trailing empty token is the fourth.
  auto r = read_hex_list("1;;3;", m, 4);
  EXPECT_EQ(r.tokens, 4u);
  EXPECT_EQ(r.stored, 2);
  EXPECT_EQ(r.malformed, 2);
  EXPECT_EQ(m[0], 1);
  EXPECT_EQ(m[1], -2);
  EXPECT_EQ(m[2], 3);
  EXPECT_EQ(m[3], -4);
  // Surplus tokens are counted but go nowhere.
  int32_t two[3] = {0, 0, 77};
  r = read_hex_list("a;b;c;d", two, 2);
  EXPECT_EQ(r.tokens, 4u);
  EXPECT_EQ(two[0], 10);
  EXPECT_EQ(two[1], 11);
  EXPECT_EQ(two[2], 77);
  // A text without separator is one token; an empty text is one empty token.
  int32_t one = 5;
  EXPECT_EQ(read_hex_list("", &one, 1).tokens, 1u);
  EXPECT_EQ(one, 5);
}

class SpeakerConfigFile : public ::testing::Test {
 protected:
  ScratchDir dir;
  SpHandle sp;
};

TEST_F(SpeakerConfigFile, GainTextGivesBothHarmonicGains) {
  const std::string p = dir.write("gain.xml", doc("<sbs><gain>2000;1000</gain></sbs>\n"));
  ASSERT_EQ(kafx_speaker_boost_loadconfig(sp.h, p.c_str()), 0);
  int l = 0, r = 0;
  kedo_speaker_boost_sbs_get_nld_gain_left(sp.chain(), &l);
  kedo_speaker_boost_sbs_get_nld_gain_right(sp.chain(), &r);
  EXPECT_EQ(l, 8192);
  EXPECT_EQ(r, 4096);
  EXPECT_EQ(sp.h->params.sbs.gain[0], 8192);
  EXPECT_EQ(sp.h->params.sbs.gain[1], 4096);
}

TEST_F(SpeakerConfigFile, ShortLimiterListChangesOnlyItsFirstMembers) {
  const Flat start = seeded(1);
  preset(sp, start);
  const std::string p = dir.write("drc.xml", doc("<sbs>\n<drc_param_left2>3;7;7fff</drc_param_left2>\n</sbs>\n"));
  ASSERT_EQ(kafx_speaker_boost_loadconfig(sp.h, p.c_str()), 0);
  Flat want = start;
  want[15] = 3;
  want[16] = 7;
  want[17] = 0x7fff;
  EXPECT_EQ(flat(sp.h->params), want);
  EXPECT_EQ(chain_state(sp.chain()), want);
  drc_param_t high{};
  kedo_speaker_boost_sbs_get_drc_high_left(sp.chain(), &high);
  EXPECT_EQ(high.attact_order, 3);
  EXPECT_EQ(high.release_order, 7);
  EXPECT_EQ(high.threshold, 0x7fff);
  EXPECT_EQ(high.volume, start[18]);
  EXPECT_EQ(high.denoise_threshold, start[19]);
}

TEST_F(SpeakerConfigFile, EveryElementReachesItsMembers) {
  preset(sp, seeded(2));
  // Distinct values everywhere: v(i) = 0x1000 + i, written element by element,
  // with the sections split over several "sbs" and "peq" elements and the
  // elements in shuffled order.
  auto list = [](int first, int count) {
    std::string s;
    for (int k = 0; k < count; ++k) {
      char b[16];
      std::snprintf(b, sizeof b, "%s%x", k ? ";" : "", 0x1000 + first + k);
      s += b;
    }
    return s;
  };
  std::string body = "<version>t-1</version>\n<sbs>\n";
  body += "<drc_param_right3>" + list(40, 5) + "</drc_param_right3>\n";
  body += "<channel_num>" + list(4, 1) + "</channel_num>\n";
  for (int i = 0; i < 4; ++i) {
    body += "<drc_param_left" + std::to_string(i) + ">" + list(5 + 5 * i, 5) + "</drc_param_left" +
            std::to_string(i) + ">\n";
  }
  body += "</sbs>\n<peq><Rfilter>" + list(108, 60) + "</Rfilter><gain>" + list(46, 2) + "</gain></peq>\n";
  body += "<sbs><enable>" + list(0, 1) + "</enable><gain>" + list(1, 2) + "</gain><channel_ration>" + list(3, 1) +
          "</channel_ration>\n";
  for (int i = 0; i < 3; ++i) {
    body += "<drc_param_right" + std::to_string(i) + ">" + list(25 + 5 * i, 5) + "</drc_param_right" +
            std::to_string(i) + ">\n";
  }
  body += "</sbs>\n<peq><enable>" + list(45, 1) + "</enable><Lfilter>" + list(48, 60) + "</Lfilter></peq>\n";
  const std::string p = dir.write("all.xml", doc(body));
  ASSERT_EQ(kafx_speaker_boost_loadconfig(sp.h, p.c_str()), 0);
  Flat want;
  for (int i = 0; i < 168; ++i) want[i] = 0x1000 + i;
  EXPECT_EQ(flat(sp.h->params), want);
  EXPECT_EQ(chain_state(sp.chain()), want);
}

TEST_F(SpeakerConfigFile, LaterSectionsWinElementByElement) {
  const Flat start = seeded(3);
  preset(sp, start);
  const std::string p = dir.write(
      "two.xml", doc("<peq><enable>1</enable><gain>1111;2222</gain></peq>\n"
                     "<sbs><channel_ration>10</channel_ration><gain>5;6</gain></sbs>\n"
                     "<peq><gain>3333</gain><enable>0</enable></peq>\n"
                     "<sbs><channel_ration>20</channel_ration></sbs>\n"));
  ASSERT_EQ(kafx_speaker_boost_loadconfig(sp.h, p.c_str()), 0);
  Flat want = start;
  want[45] = 0;      // second peq's enable
  want[46] = 0x3333; // second peq's left gain
  want[47] = 0x2222; // only the first peq set the right gain
  want[3] = 0x20;    // second sbs
  want[1] = 5;
  want[2] = 6;
  EXPECT_EQ(flat(sp.h->params), want);
  EXPECT_EQ(chain_state(sp.chain()), want);
}

TEST_F(SpeakerConfigFile, UnknownUnreadableAndMisplacedElementsAreSkipped) {
  const Flat start = seeded(4);
  preset(sp, start);
  const std::string p = dir.write(
      "skip.xml",
      doc("<sbs>\n"
          "  <gains>1;2</gains>\n"                          // unknown name
          "  <Enable>1</Enable>\n"                          // names are case-sensitive
          "  <gain><!-- left;right -->7;8</gain>\n"         // first child not text
          "  <channel_num/>\n"                              // no text
          "  <Lfilter>1;2;3</Lfilter>\n"                    // a peq element in sbs
          "  <x><enable>1</enable></x>\n"                   // too deep
          "  <drc_param_left4>1;2;3;4;5</drc_param_left4>\n" // no fifth limiter
          "</sbs>\n"
          "<peq><channel_ration>5</channel_ration></peq>\n" // an sbs element in peq
          "<group><sbs><enable>1</enable></sbs></group>\n"  // sections only directly under the root
          "<SBS><enable>1</enable></SBS>\n"));
  ASSERT_EQ(kafx_speaker_boost_loadconfig(sp.h, p.c_str()), 0);
  EXPECT_EQ(flat(sp.h->params), start);
  EXPECT_EQ(chain_state(sp.chain()), start);
}

TEST_F(SpeakerConfigFile, TextFormsAndMalformedTokens) {
  const Flat start = seeded(5);
  preset(sp, start);
  const std::string p = dir.write(
      "forms.xml",
      doc("<sbs>\r\n"
          "<gain>\r\n  2000 ;\t0x1000\r\n</gain>\r\n"                 // white space, CRLF, 0x prefix
          "<drc_param_left0>zz;;-1;100000000;12zz;99</drc_param_left0>\n" // bad, empty, negative, too wide
          "<drc_param_left1><![CDATA[a;b]]></drc_param_left1>\n"        // CDATA text
          "<drc_param_left3>&#x31;0;&#50;</drc_param_left3>\n"          // character references
          "<enable>   </enable>\n"                                     // blank text: no text node
          "</sbs>\n"));
  ASSERT_EQ(kafx_speaker_boost_loadconfig(sp.h, p.c_str()), 0);
  Flat want = start;
  want[1] = 0x2000;
  want[2] = 0x1000;
  want[7] = -1;    // token 3
  want[9] = 0x12;  // token 5; token 6 is surplus
  want[10] = 0xa;
  want[11] = 0xb;
  want[20] = 0x10; // "10"
  want[21] = 0x2;  // "2"
  EXPECT_EQ(flat(sp.h->params), want);
  EXPECT_EQ(chain_state(sp.chain()), want);
}

TEST_F(SpeakerConfigFile, MissingRootParsesNothingButStillApplies) {
  const Flat start = seeded(6);
  preset(sp, start);
  // The chain drifts away from the record; loading a root-less document puts
  // the record back on it.
  kedo_speaker_boost_sbs_set_nld_gain_left(sp.chain(), 1);
  kedo_speaker_boost_p_eq_setstatus(sp.chain(), 1234);
  const std::string p = dir.write("noroot.xml", "<config><sbs><gain>1;1</gain></sbs></config>\n");
  LogCapture log;
  ASSERT_EQ(kafx_speaker_boost_loadconfig(sp.h, p.c_str()), 0);
  EXPECT_EQ(flat(sp.h->params), start);
  EXPECT_EQ(chain_state(sp.chain()), start);
  const auto m = log.messages();
  ASSERT_GE(m.size(), 2u);
  EXPECT_EQ(m[0], "kafx_speaker_boost_loadconfig: " + p);
  EXPECT_EQ(m[1], "update_speaker_boost_params");
}

TEST_F(SpeakerConfigFile, SeparateRecordLoadsWithoutApplying) {
  const Flat start = seeded(7);
  preset(sp, start);
  void* rec = kafx_speaker_boost_params_load_init();
  ASSERT_NE(rec, nullptr);
  EXPECT_EQ(flat(*static_cast<kafx_sp_params_t*>(rec)), Flat{}); // zeroed
  const std::string p = dir.write("sep.xml", doc("<sbs><enable>1</enable><gain>2000;1000</gain></sbs>"
                                                 "<peq><enable>1</enable></peq>"));
  ASSERT_EQ(kafx_speaker_boost_params_load_config(rec, p.c_str()), 0);
  Flat want{};
  want[0] = 1;
  want[1] = 0x2000;
  want[2] = 0x1000;
  want[45] = 1;
  EXPECT_EQ(flat(*static_cast<kafx_sp_params_t*>(rec)), want);
  EXPECT_EQ(flat(sp.h->params), start);
  EXPECT_EQ(chain_state(sp.chain()), start);
  // Applying it stores a copy in the handle.
  kafx_speaker_boost_params_update(sp.h, rec);
  EXPECT_EQ(flat(sp.h->params), want);
  EXPECT_EQ(chain_state(sp.chain()), chained(want)); // expander thresholds of 0 are kept at 2
  static_cast<kafx_sp_params_t*>(rec)->sbs.enable = 9;
  EXPECT_EQ(sp.h->params.sbs.enable, 1);
  kafx_speaker_boost_params_load_deinit(rec);
  // The handle's own record may be handed back in.
  sp.h->params.peq.gain[0] = 4321;
  kafx_speaker_boost_params_update(sp.h, &sp.h->params);
  int g = 0;
  kedo_speaker_boost_p_eq_get_gain_left(sp.chain(), &g);
  EXPECT_EQ(g, 4321);
}

TEST_F(SpeakerConfigFile, RefusedFilesApplyNothing) {
  const Flat start = seeded(8);
  preset(sp, start);
  const std::string good = doc("<sbs><enable>1</enable><gain>2000;1000</gain></sbs>\n");
  std::string deep = "<kafxsp><sbs>";
  for (int i = 0; i < 70; ++i) deep += "<a>";
  for (int i = 0; i < 70; ++i) deep += "</a>";
  deep += "<gain>1;1</gain></sbs></kafxsp>";
  std::string attributes = "<kafxsp a0=\"0\"";
  for (int i = 1; i < 100; ++i) attributes += " a" + std::to_string(i) + "=\"0\"";
  attributes += "><sbs><gain>1;1</gain></sbs></kafxsp>";
  const std::vector<std::pair<std::string, std::string>> files = {
      {"empty", ""},
      {"blank", " \n\t\n"},
      {"text", "gain 2000;1000\n"},
      {"truncated", good.substr(0, good.size() - 4)},
      {"unclosed", doc("<sbs><gain>1;1</gain>\n")},
      {"mismatched", doc("<sbs><gain>1;1</gian></sbs>")},
      {"binary", std::string("\x7f" "ELF\x02\x01\x01\0\0\0<kafxsp/>", 19)},
      {"nul_inside", good.substr(0, 30) + std::string(1, '\0') + good.substr(30)},
      {"control", good.substr(0, 30) + "\x01" + good.substr(30)},
      {"latin1", doc("<version>caf\xe9</version>")},
      {"two_roots", good + "<kafxsp/>\n"},
      {"trailing_text", good + "junk\n"},
      {"open_comment", good + "<!-- unterminated"},
      {"declaration_only", "<?xml version=\"1.0\"?>\n"},
      {"comment_only", "<!-- nothing -->\n"},
      {"too_deep", deep},
      {"attributes", attributes},
      {"huge", "<kafxsp><version>" + std::string((1u << 20) + 10, 'a') + "</version></kafxsp>"},
  };
  for (const auto& [name, bytes] : files) {
    const std::string p = dir.write(name + ".xml", bytes);
    LogCapture log;
    EXPECT_EQ(kafx_speaker_boost_loadconfig(sp.h, p.c_str()), -1) << name;
    EXPECT_EQ(flat(sp.h->params), start) << name;
    EXPECT_EQ(chain_state(sp.chain()), start) << name;
    ASSERT_EQ(log.all().size(), 2u) << name;
    EXPECT_EQ(log.all()[0].message, "kafx_speaker_boost_loadconfig: " + p) << name;
    EXPECT_EQ(log.all()[0].priority, ANDROID_LOG_DEBUG);
    EXPECT_EQ(log.all()[1].message, "LoadAudioConfig fail ") << name;
    EXPECT_EQ(log.all()[1].priority, ANDROID_LOG_ERROR) << name;
    EXPECT_EQ(log.all()[1].tag, "kafx_sp_wrapper");
  }
  // Not a regular file, or no file at all.
  EXPECT_EQ(kafx_speaker_boost_loadconfig(sp.h, dir.path("missing.xml").c_str()), -1);
  EXPECT_EQ(kafx_speaker_boost_loadconfig(sp.h, dir.path("").c_str()), -1);
  const std::string fifo = dir.path("fifo.xml");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_EQ(kafx_speaker_boost_loadconfig(sp.h, fifo.c_str()), -1); // refused, not waited on
  EXPECT_EQ(kafx_speaker_boost_loadconfig(sp.h, "/dev/zero"), -1);
  EXPECT_EQ(kafx_speaker_boost_loadconfig(sp.h, "/proc/self/status"), -1); // longer than its size
  EXPECT_EQ(flat(sp.h->params), start);
  EXPECT_EQ(chain_state(sp.chain()), start);
  // Into a separate record: -1 and the record untouched.
  kafx_sp_params_t sep = record(start);
  EXPECT_EQ(kafx_speaker_boost_params_load_config(&sep, dir.write("t.xml", "<kafxsp>").c_str()), -1);
  EXPECT_EQ(flat(sep), start);
}

TEST_F(SpeakerConfigFile, NestingLimitAndHiddenNesting) {
  const Flat start = seeded(9);
  preset(sp, start);
  // 64 levels in all are accepted.
  std::string ok = "<kafxsp><sbs><gain>2;3</gain>";
  for (int i = 0; i < 62; ++i) ok += "<n>";
  for (int i = 0; i < 62; ++i) ok += "</n>";
  ok += "</sbs></kafxsp>";
  ASSERT_EQ(kafx_speaker_boost_loadconfig(sp.h, dir.write("ok.xml", ok).c_str()), 0);
  EXPECT_EQ(sp.h->params.sbs.gain[0], 2);
  preset(sp, start);
  // A character reference runs to the next ';' and swallows the end tag, so
  // this nests one level per repetition although it looks flat.
  std::string hidden = "<kafxsp>";
  for (int i = 0; i < 40000; ++i) hidden += "<a>&#x</a>x1;";
  hidden += "</kafxsp>";
  EXPECT_EQ(kafx_speaker_boost_loadconfig(sp.h, dir.write("hidden.xml", hidden).c_str()), -1);
  // The same inside a quoted attribute value.
  std::string quoted = "<kafxsp>";
  for (int i = 0; i < 40000; ++i) quoted += "<a v=\"&#x\"/>x1;\">";
  quoted += "</kafxsp>";
  EXPECT_EQ(kafx_speaker_boost_loadconfig(sp.h, dir.write("quoted.xml", quoted).c_str()), -1);
  // Plain deep nesting far beyond any stack.
  std::string plain;
  for (int i = 0; i < 200000; ++i) plain += "<a>";
  EXPECT_EQ(kafx_speaker_boost_loadconfig(sp.h, dir.write("plain.xml", plain).c_str()), -1);
  EXPECT_EQ(flat(sp.h->params), start);
  EXPECT_EQ(chain_state(sp.chain()), start);
}

TEST_F(SpeakerConfigFile, LongTextsAndManyElements) {
  const Flat start = seeded(10);
  preset(sp, start);
  // A 600 kB token list: the first two tokens count, the rest is surplus; a
  // 200000-digit token is too wide and leaves its member alone.
  std::string many = "<sbs><gain>7;8";
  for (int i = 0; i < 100000; ++i) many += ";abcd";
  many += "</gain><channel_ration>" + std::string(200000, 'f') + "</channel_ration></sbs>";
  for (int i = 0; i < 2000; ++i) many += "<peq><gain>" + std::to_string(i % 10) + "</gain></peq>";
  ASSERT_EQ(kafx_speaker_boost_loadconfig(sp.h, dir.write("long.xml", doc(many)).c_str()), 0);
  Flat want = start;
  want[1] = 7;
  want[2] = 8;
  want[46] = 1999 % 10;
  EXPECT_EQ(flat(sp.h->params), want);
  EXPECT_EQ(chain_state(sp.chain()), want);
}

TEST_F(SpeakerConfigFile, LoadAndApplyLogLines) {
  const std::string p = dir.write("log.xml", doc("<version>v 1.2</version><sbs><enable>1</enable><gain>2000;1000</gain>"
                                                 "<channel_ration>-3e8</channel_ration><channel_num>1</channel_num>"
                                                 "</sbs><peq><gain>1c85;ffffffff</gain></peq>"));
  LogCapture log;
  ASSERT_EQ(kafx_speaker_boost_loadconfig(sp.h, p.c_str()), 0);
  const std::vector<std::string> want = {
      "kafx_speaker_boost_loadconfig: " + p,
      "kafxsp version: v 1.2",
      "parse sbs parameters:",
      "parse peq parameters:",
      "update_speaker_boost_params",
      "nld_gain: 0x2000 0x1000",
      "channel_ration: -1000",
      "channel_num: 1",
      "peq_gain: 0x1c85 0xffffffff",
  };
  EXPECT_EQ(log.messages(), want);
  for (const auto& l : log.all()) {
    EXPECT_EQ(l.priority, ANDROID_LOG_DEBUG);
    EXPECT_EQ(l.tag, "kafx_sp_wrapper");
  }
  // Into a separate record: the same parse lines and nothing applied.
  log.clear();
  kafx_sp_params_t sep{};
  ASSERT_EQ(kafx_speaker_boost_params_load_config(&sep, p.c_str()), 0);
  const std::vector<std::string> want_sep = {"kafx_speaker_boost_params_load_config: " + p, "kafxsp version: v 1.2",
                                             "parse sbs parameters:", "parse peq parameters:"};
  EXPECT_EQ(log.messages(), want_sep);
  EXPECT_EQ(flat(sep), flat(sp.h->params));
  // Without a version the line is left out; an empty version logs empty text.
  log.clear();
  ASSERT_EQ(kafx_speaker_boost_params_load_config(&sep, dir.write("v.xml", doc("<version/>")).c_str()), 0);
  EXPECT_EQ(log.messages()[1], "kafxsp version: ");
  log.clear();
  ASSERT_EQ(kafx_speaker_boost_params_load_config(&sep, dir.write("nv.xml", doc("")).c_str()), 0);
  EXPECT_EQ(log.messages()[1], "parse sbs parameters:");
}

TEST_F(SpeakerConfigFile, PartialUpdatesApplyOnePartAndKeepTheRecord) {
  const Flat start = seeded(11);
  preset(sp, start);
  Flat other = seeded(12);
  other[3] = -77;
  kafx_sp_params_t o = record(other);
  LogCapture log;
  kafx_speaker_boost_update_sbs_params(sp.h, &o.sbs);
  Flat want = start;
  for (int i = 0; i < 45; ++i) want[i] = other[i];
  EXPECT_EQ(chain_state(sp.chain()), want);
  EXPECT_EQ(flat(sp.h->params), start);
  char gains[64];
  std::snprintf(gains, sizeof gains, "nld_gain: 0x%x 0x%x", static_cast<unsigned>(other[1]),
                static_cast<unsigned>(other[2]));
  std::vector<std::string> expect = {"kafx_speaker_boost_update_sbs_params", "status: " + std::to_string(other[0]),
                                     gains, "channel_ration: -77", "channel_num: " + std::to_string(other[4])};
  EXPECT_EQ(log.messages(), expect);

  log.clear();
  kafx_speaker_boost_update_peq_params(sp.h, &o);
  for (int i = 45; i < 168; ++i) want[i] = other[i];
  EXPECT_EQ(chain_state(sp.chain()), want);
  EXPECT_EQ(flat(sp.h->params), start);
  std::snprintf(gains, sizeof gains, "peq_gain: 0x%x 0x%x", static_cast<unsigned>(other[46]),
                static_cast<unsigned>(other[47]));
  expect = {"kafx_speaker_boost_update_peq_params", "status: " + std::to_string(other[45]), gains};
  EXPECT_EQ(log.messages(), expect);
}

TEST(SpeakerConfigStrings, SbsAndPeqStrings) {
  Flat start;
  for (int i = 0; i < 168; ++i) start[i] = -1000 - i;
  kafx_sp_params_t p = record(start);
  // 1,8192,8192,0,2 then 40 limiter values, then a 46th that goes nowhere.
  std::string sbs = "1,8192,8192,0,2";
  for (int i = 0; i < 40; ++i) sbs += "," + std::to_string(100 + i);
  kafx_speaker_boost_parse_sbs_params(&p, (sbs + ",555").c_str());
  Flat want = start;
  want[0] = 1;
  want[1] = 8192;
  want[2] = 8192;
  want[3] = 0;
  want[4] = 2;
  for (int i = 0; i < 40; ++i) want[5 + i] = 100 + i;
  EXPECT_EQ(flat(p), want);
  EXPECT_EQ(p.sbs.drc_right[3].denoise_threshold, 139);
  // 123 peq values; missing and malformed tokens keep the current values.
  std::string peq;
  for (int i = 0; i < 123; ++i) peq += (i ? "," : "") + std::to_string(i == 5 ? -7 : i * 3);
  kafx_speaker_boost_parse_peq_params(&p, peq.c_str());
  for (int i = 0; i < 123; ++i) want[45 + i] = i == 5 ? -7 : i * 3;
  EXPECT_EQ(flat(p), want);
  kafx_speaker_boost_parse_peq_params(&p, "9,,x, 12,99999999999,-2147483648");
  want[45] = 9;
  want[48] = 12;
  want[50] = INT32_MIN;
  EXPECT_EQ(flat(p), want);
  kafx_speaker_boost_parse_sbs_params(&p, "");
  EXPECT_EQ(flat(p), want);
  // Parsing logs nothing and does not touch a chain.
  LogCapture log;
  kafx_speaker_boost_parse_sbs_params(&p, "3");
  EXPECT_TRUE(log.all().empty());
  EXPECT_EQ(p.sbs.enable, 3);
}

TEST(SpeakerConfigDump, LinesAndTabs) {
  Flat f;
  for (int i = 0; i < 168; ++i) f[i] = i;
  f[1] = 0x2000;
  f[2] = -1;
  f[3] = -5;
  f[48] = 1;
  f[49] = 0x10000000;
  f[52] = -0x100;
  f[167] = 0x7fffffff;
  const kafx_sp_params_t p = record(f);
  LogCapture log;
  kafx_speaker_boost_dump_params(const_cast<kafx_sp_params_t*>(&p));
  const auto m = log.messages();
  ASSERT_EQ(m.size(), 39u);
  const std::vector<std::string> head = {
      "kafx_speaker_boost_dump_params",
      "sbs params dump:",
      "enable: 0",
      "gain: 0x2000 0xffffffff",
      "channel_ration: -5",
      "channel_num: 4",
      "drc_low_left:\t\t 0x5 0x6 0x7 0x8 0x9",
      "drc_mid_left:\t\t 0xa 0xb 0xc 0xd 0xe",
      "drc_high_left:\t 0xf 0x10 0x11 0x12 0x13",
      "drc_full_left:\t 0x14 0x15 0x16 0x17 0x18",
      "drc_low_right:\t 0x19 0x1a 0x1b 0x1c 0x1d",
      "drc_mid_right:\t 0x1e 0x1f 0x20 0x21 0x22",
      "drc_high_right:\t 0x23 0x24 0x25 0x26 0x27",
      "drc_full_right:\t 0x28 0x29 0x2a 0x2b 0x2c",
      "peq params dump:",
      "enable: 45",
      "gain: 0x2e 0x2f",
      "Lfilter params:",
      "band[1]:\t 0x00000001 0x10000000 0x00000032 0x00000033 0xffffff00 0x00000035",
      "band[2]:\t 0x00000036 0x00000037 0x00000038 0x00000039 0x0000003a 0x0000003b",
  };
  for (size_t i = 0; i < head.size(); ++i) EXPECT_EQ(m[i], head[i]) << i;
  EXPECT_EQ(m[27], "band[10]:\t 0x00000066 0x00000067 0x00000068 0x00000069 0x0000006a 0x0000006b");
  EXPECT_EQ(m[28], "Rfilter params:");
  EXPECT_EQ(m[29], "band[1]:\t 0x0000006c 0x0000006d 0x0000006e 0x0000006f 0x00000070 0x00000071");
  EXPECT_EQ(m[38], "band[10]:\t 0x000000a2 0x000000a3 0x000000a4 0x000000a5 0x000000a6 0x7fffffff");
  for (const auto& l : log.all()) EXPECT_EQ(l.priority, ANDROID_LOG_DEBUG);
}

TEST(SpeakerConfigNulls, NullArgumentsDoNothing) {
  ScratchDir dir;
  SpHandle sp;
  const std::string p = dir.write("n.xml", doc("<sbs><enable>1</enable></sbs>"));
  kafx_sp_params_t rec{};
  LogCapture log;
  EXPECT_EQ(kafx_speaker_boost_loadconfig(nullptr, p.c_str()), -1);
  EXPECT_EQ(kafx_speaker_boost_loadconfig(sp.h, nullptr), -1);
  EXPECT_EQ(kafx_speaker_boost_params_load_config(nullptr, p.c_str()), -1);
  EXPECT_EQ(kafx_speaker_boost_params_load_config(&rec, nullptr), -1);
  kafx_speaker_boost_params_update(nullptr, &rec);
  kafx_speaker_boost_params_update(sp.h, nullptr);
  kafx_speaker_boost_update_sbs_params(nullptr, &rec);
  kafx_speaker_boost_update_sbs_params(sp.h, nullptr);
  kafx_speaker_boost_update_peq_params(nullptr, &rec);
  kafx_speaker_boost_update_peq_params(sp.h, nullptr);
  kafx_speaker_boost_parse_sbs_params(nullptr, "1");
  kafx_speaker_boost_parse_sbs_params(&rec, nullptr);
  kafx_speaker_boost_parse_peq_params(nullptr, "1");
  kafx_speaker_boost_parse_peq_params(&rec, nullptr);
  kafx_speaker_boost_dump_params(nullptr);
  kafx_speaker_boost_params_load_deinit(nullptr);
  EXPECT_TRUE(log.all().empty());
  EXPECT_EQ(flat(rec), Flat{});
  EXPECT_EQ(flat(sp.h->params), Flat{}); // the front end starts from zeros
}

} // namespace
