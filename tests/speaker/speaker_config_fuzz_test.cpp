// Randomised configuration input (fixed seeds, a few thousand cases):
//  - generated documents whose meaning is known by construction (valid, empty,
//    malformed, too wide and surplus tokens; unknown, empty, commented and
//    CDATA elements; sections in any order) must load with exactly the
//    expected record, and the chain must hold that record;
//  - parameter strings likewise;
//  - truncations of valid documents fail exactly when they cut into the root
//    element, and then change nothing;
//  - edits confined to one element's text change at most that element's
//    members;
//  - nesting inserted into a section (plain, or hidden in character
//    references) is accepted up to 64 levels and refused beyond;
//  - random bytes, random markup soup and random edits never crash, return 0
//    or -1, change nothing on -1 and leave the chain equal to the record on 0.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "kafx_proc/speaker_boost.h"
#include "speaker_config_test_util.h"

namespace {

using namespace spcfg_test;

struct Slot {
  const char* name;
  int first, count;
};
// The element names and the record places they fill, as documented for the
// file format.
const Slot kSbs[] = {{"enable", 0, 1},           {"gain", 1, 2},
                     {"channel_ration", 3, 1},   {"channel_num", 4, 1},
                     {"drc_param_left0", 5, 5},  {"drc_param_left1", 10, 5},
                     {"drc_param_left2", 15, 5}, {"drc_param_left3", 20, 5},
                     {"drc_param_right0", 25, 5}, {"drc_param_right1", 30, 5},
                     {"drc_param_right2", 35, 5}, {"drc_param_right3", 40, 5}};
const Slot kPeq[] = {{"enable", 45, 1}, {"gain", 46, 2}, {"Lfilter", 48, 60}, {"Rfilter", 108, 60}};

class Rng {
 public:
  explicit Rng(unsigned seed) : g(seed) {}
  int uni(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(g); }
  bool chance(double p) { return std::uniform_real_distribution<double>(0, 1)(g) < p; }
  uint32_t u32() { return std::uniform_int_distribution<uint32_t>()(g); }
  template <class T, size_t N>
  const T& pick(const T (&a)[N]) { return a[static_cast<size_t>(uni(0, static_cast<int>(N) - 1))]; }
  std::mt19937 g;
};

std::string hex_digits(uint32_t v, bool upper) {
  char b[16];
  std::snprintf(b, sizeof b, upper ? "%X" : "%x", v);
  return b;
}

std::string spaces(Rng& r) {
  static const char* const kWs[] = {"", "", " ", "\t", "\n", "\r\n", "  "};
  return r.pick(kWs);
}

// One token of a hexadecimal list; *valid / *value tell what it must read as.
std::string hex_token(Rng& r, bool allow_refs, bool allow_huge, bool* valid, int32_t* value) {
  const int kind = r.uni(0, 99);
  *valid = false;
  if (kind < 70) {
    uint32_t v = r.chance(0.3) ? static_cast<uint32_t>(r.uni(0, 300)) : r.u32();
    const bool negative = r.chance(0.15);
    std::string t;
    if (negative) t += "-";
    else if (r.chance(0.05)) t += "+";
    if (r.chance(0.25)) t += r.chance(0.5) ? "0x" : "0X";
    if (r.chance(0.2)) t += std::string(static_cast<size_t>(r.uni(1, 20)), '0');
    t += hex_digits(negative ? 0u - v : v, r.chance(0.3));
    if (r.chance(0.1)) {
      static const char* const kTail[] = {"zz", "g", "-", "+", " 5", "x", "q1"};
      t += r.pick(kTail);
    }
    if (allow_refs && r.chance(0.1)) { // one character as a character reference
      const size_t at = static_cast<size_t>(r.uni(0, static_cast<int>(t.size()) - 1));
      char ref[16];
      std::snprintf(ref, sizeof ref, r.chance(0.5) ? "&#x%X;" : "&#%d;", static_cast<unsigned char>(t[at]));
      t = t.substr(0, at) + ref + t.substr(at + 1);
    }
    *valid = true;
    *value = static_cast<int32_t>(v);
    return spaces(r) + t + spaces(r);
  }
  if (kind < 80) {
    static const char* const kBad[] = {"zz", "g", "-", "+", "x1", "-x", "q0", "+-1", "--1", "#", "z0", " "};
    return r.pick(kBad);
  }
  if (kind < 90) { // at least 33 significant bits
    std::string t = r.chance(0.3) ? "0x" : "";
    if (r.chance(0.3)) t += "000";
    t += static_cast<char>("123456789abcdef"[r.uni(0, 14)]);
    const int extra = allow_huge && r.chance(0.02) ? r.uni(1000, 60000) : r.uni(8, 30);
    for (int i = 0; i < extra; ++i) t += "0123456789abcdef"[r.uni(0, 15)];
    return spaces(r) + t;
  }
  return spaces(r); // empty or blank
}

// A list for `count` members; writes (index, value) pairs into ops.
std::string hex_list(Rng& r, const Slot& s, bool refs, bool huge, std::vector<std::pair<int, int32_t>>* ops) {
  int n = s.count;
  const int shape = r.uni(0, 9);
  if (shape < 2) n = r.uni(0, s.count - 1);
  else if (shape < 4) n = s.count + r.uni(1, 4);
  std::string text;
  for (int k = 0; k < n; ++k) {
    bool valid;
    int32_t value;
    const std::string t = hex_token(r, refs, huge, &valid, &value);
    if (valid && k < s.count) ops->push_back({s.first + k, value});
    text += (k ? ";" : "") + t;
  }
  return text;
}

struct Span {
  size_t begin, end; // text of one element
  int first, count;  // its members
};

struct GenDoc {
  std::string xml;
  Flat expected;
  std::vector<Span> spans;       // plain texts without references
  std::vector<size_t> sbs_inner; // just after an "<sbs>" start tag
  size_t root_end = 0;           // just after the root's end tag
};

const char* filler(Rng& r) {
  static const char* const kFill[] = {"", "\n", "  ", "<!-- note -->", "<?pi data?>", "\n<!--x-->\n"};
  return r.pick(kFill);
}

// Writes one section's elements; known elements produce ops.
void section(Rng& r, GenDoc* d, const Slot* slots, size_t nslots, const Slot* others, size_t nothers, bool sbs,
             bool huge, std::vector<std::pair<int, int32_t>>* ops) {
  d->xml += sbs ? "<sbs>" : (r.chance(0.2) ? "<peq  kind='x'>" : "<peq>");
  if (sbs) d->sbs_inner.push_back(d->xml.size());
  const int n = r.uni(0, sbs ? 8 : 5);
  for (int e = 0; e < n; ++e) {
    d->xml += filler(r);
    const Slot& s = slots[r.uni(0, static_cast<int>(nslots) - 1)];
    const int form = r.uni(0, 99);
    std::string name = s.name;
    if (form < 60) { // plain, maybe with attributes
      std::vector<std::pair<int, int32_t>> mine;
      const bool refs = r.chance(0.3);
      const std::string text = hex_list(r, s, refs, huge, &mine);
      d->xml += "<" + name + (r.chance(0.1) ? " a=\"1\" b='x&amp;y'" : "") + ">";
      if (text.find('&') == std::string::npos)
        d->spans.push_back({d->xml.size(), d->xml.size() + text.size(), s.first, s.count});
      d->xml += text + "</" + name + ">";
      ops->insert(ops->end(), mine.begin(), mine.end());
    } else if (form < 68) { // CDATA: raw text
      std::vector<std::pair<int, int32_t>> mine;
      const std::string text = hex_list(r, s, false, false, &mine);
      d->xml += "<" + name + "><![CDATA[" + text + "]]></" + name + ">";
      ops->insert(ops->end(), mine.begin(), mine.end());
    } else if (form < 74) { // text first, then a child element: the text counts
      std::vector<std::pair<int, int32_t>> mine;
      const std::string text = hex_list(r, s, false, false, &mine);
      d->xml += "<" + name + ">" + text + "<child>1;2</child>tail</" + name + ">";
      ops->insert(ops->end(), mine.begin(), mine.end());
    } else if (form < 80) { // a comment first: ignored
      std::vector<std::pair<int, int32_t>> ignored;
      d->xml += "<" + name + "><!--c-->" + hex_list(r, s, false, false, &ignored) + "</" + name + ">";
    } else if (form < 85) {
      d->xml += "<" + name + "/>";
    } else { // a name this section does not know
      std::vector<std::pair<int, int32_t>> ignored;
      static const char* const kWrong[] = {"Gain", "gain2", "enable_", "drc_param_left", "sbs", "peq", "x"};
      const std::string wrong = r.chance(0.5) ? std::string(r.pick(kWrong))
                                              : std::string(others[r.uni(0, static_cast<int>(nothers) - 1)].name);
      if (std::find_if(slots, slots + nslots, [&](const Slot& k) { return wrong == k.name; }) != slots + nslots) {
        d->xml += "<unknown/>";
        continue;
      }
      d->xml += "<" + wrong + ">" + hex_list(r, s, false, false, &ignored) + "</" + wrong + ">";
    }
  }
  d->xml += filler(r);
  d->xml += sbs ? "</sbs>" : "</peq>";
}

GenDoc generate(Rng& r, const Flat& start, bool epilog_comments, bool huge) {
  GenDoc d;
  d.expected = start;
  if (r.chance(0.05)) d.xml += "\xEF\xBB\xBF";
  if (r.chance(0.5)) d.xml += r.chance(0.5) ? "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n" : "<?xml version='1.0'?>";
  if (r.chance(0.1)) d.xml += "<!DOCTYPE kafxsp>\n";
  if (r.chance(0.1)) d.xml += "<!-- tuning -->\n";
  const bool right_root = r.chance(0.95);
  d.xml += right_root ? "<kafxsp>" : "<kafxsp_v2>";
  std::vector<std::pair<int, int32_t>> sbs_ops, peq_ops;
  const int n = r.uni(0, 6);
  for (int i = 0; i < n; ++i) {
    d.xml += filler(r);
    const int kind = r.uni(0, 99);
    if (kind < 35) {
      section(r, &d, kSbs, std::size(kSbs), kPeq, std::size(kPeq), true, huge, &sbs_ops);
    } else if (kind < 70) {
      section(r, &d, kPeq, std::size(kPeq), kSbs, std::size(kSbs), false, huge, &peq_ops);
    } else if (kind < 80) {
      d.xml += "<version>v" + std::to_string(r.uni(0, 99)) + "</version>";
    } else if (kind < 90) { // a section-like element under another name
      std::vector<std::pair<int, int32_t>> ignored;
      d.xml += "<sbs_old><gain>" + hex_list(r, kSbs[1], false, false, &ignored) + "</gain></sbs_old>";
    } else {
      d.xml += "some text";
    }
  }
  d.xml += right_root ? "</kafxsp>" : "</kafxsp_v2>";
  d.root_end = d.xml.size();
  d.xml += r.chance(0.5) ? "\n" : "";
  if (epilog_comments && r.chance(0.2)) d.xml += "<!-- end -->\n";
  if (right_root) {
    for (const auto& [i, v] : sbs_ops) d.expected[static_cast<size_t>(i)] = v;
    for (const auto& [i, v] : peq_ops) d.expected[static_cast<size_t>(i)] = v;
  }
  return d;
}

class SpeakerConfigFuzz : public ::testing::Test {
 protected:
  ScratchDir dir;
  SpHandle sp;
  Flat start{};

  void reset(Rng& r) {
    start = random_flat(r.g);
    restore();
  }
  // Record and chain back to `start`.
  void restore() {
    kafx_sp_params_t p = record(start);
    kafx_speaker_boost_params_update(sp.h, &p);
  }
  int load(const std::string& bytes) {
    return kafx_speaker_boost_loadconfig(sp.h, dir.write("case.xml", bytes).c_str());
  }
  // After any load: -1 leaves everything as it was; 0 leaves the chain
  // holding the record.
  void check_invariants(int rc, const std::string& what) {
    ASSERT_TRUE(rc == 0 || rc == -1) << what;
    const Flat now = flat(sp.h->params);
    if (rc == -1) {
      ASSERT_EQ(first_difference(now, start), -1) << what;
    }
    ASSERT_EQ(first_difference(chain_state(sp.chain()), chained(now)), -1) << what;
  }
};

TEST_F(SpeakerConfigFuzz, GeneratedDocumentsLoadExactly) {
  Rng r(20240611);
  for (int c = 0; c < 1500; ++c) {
    reset(r);
    const GenDoc d = generate(r, start, true, true);
    ASSERT_EQ(load(d.xml), 0) << "case " << c << "\n" << d.xml.substr(0, 4000);
    ASSERT_EQ(first_difference(flat(sp.h->params), d.expected), -1) << "case " << c << "\n" << d.xml.substr(0, 4000);
    ASSERT_EQ(first_difference(chain_state(sp.chain()), chained(d.expected)), -1) << "case " << c;
  }
}

TEST_F(SpeakerConfigFuzz, ParameterStringsLoadExactly) {
  Rng r(77);
  for (int c = 0; c < 600; ++c) {
    const Flat before = random_flat(r.g);
    kafx_sp_params_t p = record(before);
    Flat want = before;
    const bool sbs = r.chance(0.5);
    const int first = sbs ? 0 : 45, count = sbs ? 45 : 123;
    int n = count;
    if (r.chance(0.3)) n = r.uni(0, count + 5);
    std::string text;
    for (int k = 0; k < n; ++k) {
      std::string t;
      const int kind = r.uni(0, 9);
      if (kind < 7) {
        const int32_t v = static_cast<int32_t>(r.u32());
        t = spaces(r) + (r.chance(0.1) && v >= 0 ? "+" : "") + std::to_string(v) + (r.chance(0.1) ? "x" : "");
        if (k < count) want[static_cast<size_t>(first + k)] = v;
      } else if (kind < 8) {
        t = std::to_string(static_cast<int64_t>(INT32_MAX) + 1 + r.uni(0, 1000000)) ;
        if (r.chance(0.5)) t = "-" + std::to_string(static_cast<int64_t>(INT32_MAX) + 2 + r.uni(0, 1000));
      } else if (kind < 9) {
        static const char* const kBad[] = {"", " ", "x", "-", "+", "a1", "--2", "0x"};
        t = r.pick(kBad);
        if (t == "0x" && k < count) want[static_cast<size_t>(first + k)] = 0; // "%d" reads the 0
      } else {
        t = std::string(static_cast<size_t>(r.uni(11, 400)), '9');
      }
      text += (k ? "," : "") + t;
    }
    if (sbs) kafx_speaker_boost_parse_sbs_params(&p, text.c_str());
    else kafx_speaker_boost_parse_peq_params(&p, text.c_str());
    ASSERT_EQ(first_difference(flat(p), want), -1) << "case " << c << ": " << text;
  }
}

TEST_F(SpeakerConfigFuzz, TruncationFailsInsideTheRootOnly) {
  Rng r(31337);
  for (int c = 0; c < 60; ++c) {
    reset(r);
    const GenDoc d = generate(r, start, false, false);
    for (int k = 0; k < 15; ++k) {
      const size_t cut = k == 0 ? d.root_end - 1 : static_cast<size_t>(r.uni(0, static_cast<int>(d.xml.size())));
      const int rc = load(d.xml.substr(0, cut));
      const std::string what = "case " + std::to_string(c) + " cut " + std::to_string(cut) + "\n" + d.xml;
      ASSERT_EQ(rc, cut >= d.root_end ? 0 : -1) << what;
      ASSERT_NO_FATAL_FAILURE(check_invariants(rc, what));
      if (rc == 0) {
        ASSERT_EQ(first_difference(flat(sp.h->params), d.expected), -1) << what;
      }
      restore(); // the expectation belongs to this start record
    }
  }
}

TEST_F(SpeakerConfigFuzz, EditsInsideOneTextStayInsideItsMembers) {
  Rng r(4242);
  static const char kSafe[] = "0123456789abcdefABCDEFxX;;;+- \t\nzg";
  int cases = 0;
  for (int c = 0; c < 1500 && cases < 600; ++c) {
    reset(r);
    const GenDoc d = generate(r, start, true, false);
    if (d.spans.empty() || d.xml.find("<kafxsp>") == std::string::npos) continue;
    ++cases;
    const Span& s = d.spans[static_cast<size_t>(r.uni(0, static_cast<int>(d.spans.size()) - 1))];
    std::string text = d.xml.substr(s.begin, s.end - s.begin);
    const int edits = r.uni(1, 6);
    for (int e = 0; e < edits; ++e) {
      const char ch = kSafe[r.uni(0, static_cast<int>(sizeof kSafe) - 2)];
      const int op = r.uni(0, 2);
      const size_t at = text.empty() ? 0 : static_cast<size_t>(r.uni(0, static_cast<int>(text.size()) - 1));
      if (op == 0 && !text.empty()) text[at] = ch;
      else if (op == 1) text.insert(at, 1, ch);
      else if (!text.empty()) text.erase(at, static_cast<size_t>(r.uni(1, 4)));
    }
    const std::string xml = d.xml.substr(0, s.begin) + text + d.xml.substr(s.end);
    ASSERT_EQ(load(xml), 0) << xml;
    const Flat now = flat(sp.h->params);
    for (int i = 0; i < 168; ++i) {
      if (i >= s.first && i < s.first + s.count) continue;
      ASSERT_EQ(now[static_cast<size_t>(i)], d.expected[static_cast<size_t>(i)]) << "index " << i << "\n" << xml;
    }
    ASSERT_EQ(first_difference(chain_state(sp.chain()), chained(now)), -1);
  }
  EXPECT_GE(cases, 300);
}

TEST_F(SpeakerConfigFuzz, InsertedNestingUpToTheLimit) {
  Rng r(99);
  int cases = 0;
  for (int c = 0; c < 400 && cases < 150; ++c) {
    reset(r);
    const GenDoc d = generate(r, start, true, false);
    if (d.sbs_inner.empty() || d.xml.find("<kafxsp>") == std::string::npos) continue;
    ++cases;
    const size_t at = d.sbs_inner[static_cast<size_t>(r.uni(0, static_cast<int>(d.sbs_inner.size()) - 1))];
    const int levels = r.chance(0.2) ? r.uni(1000, 30000) : r.uni(1, 120);
    const int style = r.uni(0, 2);
    std::string nest;
    for (int i = 0; i < levels; ++i) {
      if (style == 0) nest += "<d>";
      else if (style == 1) nest += "<d>&#x</d>x1;"; // the reference swallows "</d>"
      else nest += "<d v=\"&#x\"/>x1;\">";         // ... and here "/>"
    }
    for (int i = 0; i < levels; ++i) nest += "</d>";
    const std::string xml = d.xml.substr(0, at) + nest + d.xml.substr(at);
    const int rc = load(xml);
    // kafxsp and sbs are two levels.
    ASSERT_EQ(rc, 2 + levels <= 64 ? 0 : -1) << "levels " << levels << " style " << style;
    ASSERT_NO_FATAL_FAILURE(check_invariants(rc, "nesting"));
    if (rc == 0) {
      ASSERT_EQ(first_difference(flat(sp.h->params), d.expected), -1);
    }
  }
  EXPECT_GE(cases, 100);
}

TEST_F(SpeakerConfigFuzz, RandomBytesSoupAndEditsNeverCrash) {
  Rng r(5150);
  static const char* const kSoup[] = {
      "<kafxsp>", "</kafxsp>", "<sbs>", "</sbs>", "<peq>", "</peq>", "<gain>", "</gain>", "<Lfilter>",
      "</Lfilter>", "1;2", "ffffffff;", ";", "<!--", "-->", "<![CDATA[", "]]>", "&#x31;", "&#x", "&#", "&amp;",
      "&", "\"", "'", "=", " a=", "<?xml version='1.0'?>", "<?xml ", "?>", "/>", ">", "<", "</", "\n", " ",
      "<!DOCTYPE x>", "<!", "<a>", "</a>", "x1;", "\xEF\xBB\xBF", "\xC3\xA9", "\xC3", "\xFF", "\t", "\r"};
  int zero = 0, minus = 0;
  for (int c = 0; c < 1200; ++c) {
    reset(r);
    std::string bytes;
    const int kind = c % 3;
    if (kind == 0) { // raw random bytes
      const int n = r.uni(0, 3000);
      for (int i = 0; i < n; ++i) bytes += static_cast<char>(r.uni(0, 255));
    } else if (kind == 1) { // markup soup
      if (r.chance(0.7)) bytes += "<kafxsp>";
      const int n = r.uni(1, 80);
      for (int i = 0; i < n; ++i) bytes += r.pick(kSoup);
      if (r.chance(0.7)) bytes += "</kafxsp>";
    } else { // random edits of a valid document
      bytes = generate(r, start, true, false).xml;
      const int edits = r.uni(1, 5);
      for (int e = 0; e < edits && !bytes.empty(); ++e) {
        const size_t at = static_cast<size_t>(r.uni(0, static_cast<int>(bytes.size()) - 1));
        switch (r.uni(0, 4)) {
          case 0: bytes[at] = static_cast<char>(r.uni(0, 255)); break;
          case 1: bytes.insert(at, 1, static_cast<char>(r.uni(0, 255))); break;
          case 2: bytes.erase(at, static_cast<size_t>(r.uni(1, 10))); break;
          case 3: bytes.insert(at, bytes.substr(static_cast<size_t>(r.uni(0, static_cast<int>(at))), 40)); break;
          default: bytes.insert(at, r.pick(kSoup)); break;
        }
      }
    }
    const int rc = load(bytes);
    (rc == 0 ? zero : minus)++;
    ASSERT_NO_FATAL_FAILURE(check_invariants(rc, "case " + std::to_string(c)));
  }
  // Both outcomes occur, so both paths were exercised.
  EXPECT_GT(zero, 50);
  EXPECT_GT(minus, 300);
}

} // namespace
