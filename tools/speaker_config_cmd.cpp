// `kafx speaker-config FILE...`: checks speaker configuration files before
// they go to a device.
//
// For each file the record is loaded with the library itself
// (kafx_speaker_boost_params_load_init / _params_load_config into a separate,
// zeroed record) and printed line for line as kafx_speaker_boost_dump_params
// logs it. The document is then walked again with TinyXML, after the same
// byte checks, to report what every element did: the record indices it
// filled, how many tokens it had, which tokens did not scan (their members
// keep the earlier value), which tokens were surplus, which elements were
// unknown or had no text, which members a later element overwrote, and which
// members the file never sets. The library's own log lines still go to the
// Android log.
#include "speaker_config_cmd.h"

#include <tinyxml.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "speaker/speaker_config_parse.h"
#include "speaker/speaker_config_xml.h"
#include "kafx_proc/speaker_boost.h"
#include "command_line.h"
#include "speaker_config_check.h"

namespace {

using namespace kafx::spcfg;

// Printable name of a flat record index.
std::string member_name(int i) {
  static const char* const kDrc[5] = {"attact_order", "release_order", "threshold", "volume", "denoise_threshold"};
  static const char* const kBand[4] = {"low", "mid", "high", "full"};
  static const char* const kCoef[6] = {"enable", "b0", "b1", "b2", "a1", "a2"};
  char buf[64];
  if (i == 0) return "sbs.enable";
  if (i <= 2) return i == 1 ? "sbs.gain[left]" : "sbs.gain[right]";
  if (i == 3) return "sbs.channel_ration";
  if (i == 4) return "sbs.channel_num";
  if (i < 45) {
    const int k = i - 5, side = k / 20, band = (k % 20) / 5;
    std::snprintf(buf, sizeof buf, "sbs.drc_%s_%s.%s", kBand[band], side ? "right" : "left", kDrc[k % 5]);
    return buf;
  }
  if (i == 45) return "peq.enable";
  if (i <= 47) return i == 46 ? "peq.gain[left]" : "peq.gain[right]";
  const int k = i - 48, side = k / 60, band = (k % 60) / 6;
  std::snprintf(buf, sizeof buf, "peq.%s[%d].%s", side ? "Rfilter" : "Lfilter", band + 1, kCoef[k % 6]);
  return buf;
}

// Built by appending only: GCC 12 at -O3 wrongly reports an overlapping
// copy (-Wrestrict) for a literal prepended to a temporary string.
std::string range_text(int first, int count) {
  std::string s = "[";
  s += std::to_string(first);
  if (count != 1) {
    s += "..";
    s += std::to_string(first + count - 1);
  }
  s += ']';
  return s;
}

// "3, 5..9" for a sorted list of indices.
std::string indices_text(const std::vector<int>& v) {
  std::string out;
  for (size_t i = 0; i < v.size();) {
    size_t j = i;
    while (j + 1 < v.size() && v[j + 1] == v[j] + 1) ++j;
    if (!out.empty()) out += ", ";
    out += std::to_string(v[i]);
    if (j > i) out += ".." + std::to_string(v[j]);
    i = j + 1;
  }
  return out;
}

std::string shorten(const char* token) {
  std::string s = token;
  if (s.size() > 24) s = s.substr(0, 21) + "...";
  return s;
}

struct Report {
  bool written[kParamCount] = {}; // set by some element so far
};

template <size_t N>
void report_section(const TiXmlElement* section, const char* kind, int ordinal, const ElementSlot (&table)[N],
                    Report* r) {
  std::printf("<%s> section %d (line %d):\n", kind, ordinal, section->Row());
  if (section->FirstChildElement() == nullptr) std::printf("  (no elements)\n");
  for (const TiXmlElement* e = section->FirstChildElement(); e != nullptr; e = e->NextSiblingElement()) {
    std::printf("  line %-4d <%s>", e->Row(), e->Value());
    const ElementSlot* slot = find_slot(table, e->Value());
    if (slot == nullptr) {
      std::printf(": unknown in <%s>, ignored\n", kind);
      continue;
    }
    const char* text = e->GetText();
    if (text == nullptr) {
      std::printf(": no text (empty, or not starting with text), ignored\n");
      continue;
    }
    std::vector<std::string> notes;
    int stored = 0;
    std::vector<int> overwritten;
    const size_t tokens = for_each_token(text, ";", [&](size_t k, const char* token) {
      if (k >= static_cast<size_t>(slot->count)) return;
      const int index = slot->first + static_cast<int>(k);
      int32_t value;
      if (!scan_hex32(token, &value)) {
        notes.push_back("token " + std::to_string(k + 1) + " '" + shorten(token) +
                        "' is not a 32-bit hexadecimal number: " + member_name(index) + " [" +
                        std::to_string(index) + "] unchanged");
        return;
      }
      ++stored;
      if (r->written[index]) overwritten.push_back(index);
      r->written[index] = true;
    });
    std::printf(": %zu token%s for %d member%s %s", tokens, tokens == 1 ? "" : "s", slot->count,
                slot->count == 1 ? "" : "s", range_text(slot->first, slot->count).c_str());
    std::printf(", %d stored\n", stored);
    if (tokens < static_cast<size_t>(slot->count)) {
      const int first_missing = slot->first + static_cast<int>(tokens);
      std::printf("      missing tokens: %s unchanged\n",
                  range_text(first_missing, slot->first + slot->count - first_missing).c_str());
    }
    if (tokens > static_cast<size_t>(slot->count))
      std::printf("      %zu surplus token%s ignored\n", tokens - slot->count,
                  tokens - slot->count == 1 ? "" : "s");
    for (const std::string& n : notes) std::printf("      %s\n", n.c_str());
    if (!overwritten.empty())
      std::printf("      overwrites values set earlier in the file: [%s]\n", indices_text(overwritten).c_str());
  }
}

void print_unset(const Report& r) {
  std::vector<int> unset;
  for (int i = 0; i < kParamCount; ++i)
    if (!r.written[i]) unset.push_back(i);
  if (unset.empty())
    std::printf("every member of the record is set by this file\n");
  else
    std::printf("members not set by this file (they keep their earlier value): [%s]\n",
                indices_text(unset).c_str());
}

std::string load_failure_text(const DocumentResult& d) {
  if (d.read != ReadStatus::ok) return std::string("the file ") + read_status_text(d.read);
  if (d.check != XmlCheck::ok) return std::string("the document ") + xml_check_text(d.check);
  if (d.parse_error) return std::string("not well-formed XML: ") + (d.parser_message ? d.parser_message : "");
  if (d.trailing_text) return "not well-formed XML: text after the last element";
  if (d.top_elements != 1)
    return "not well-formed XML: " + std::to_string(d.top_elements) + " top-level elements, one expected";
  return "unknown reason";
}

// Returns 0 when the file loads and nothing was flagged.
int check_file(const char* path) {
  std::printf("== %s\n", path);
  void* params = kafx_speaker_boost_params_load_init();
  if (params == nullptr) {
    std::printf("out of memory\n");
    return 1;
  }
  const int rc = kafx_speaker_boost_params_load_config(params, path);
  TiXmlDocument doc;
  const DocumentResult d = load_config_document(path, &doc);
  const kafx_tool::ConfigCheck checked = kafx_tool::check_speaker_config(path);
  if (rc != 0 || !d.ok) {
    std::printf("load: FAILED (%d): %s; the library applies nothing from this file\n\n", rc,
                checked.loaded ? load_failure_text(d).c_str() : checked.load_error.c_str());
    kafx_speaker_boost_params_load_deinit(params);
    return 1;
  }
  std::printf("load: ok\n");
  Report report;
  const TiXmlElement* root = doc.FirstChildElement("kafxsp");
  if (root == nullptr) {
    std::printf("root: <%s> is not <kafxsp>: nothing is parsed (loading still succeeds)\n",
                doc.FirstChildElement()->Value());
  } else {
    std::printf("root: <kafxsp> at line %d\n", root->Row());
    const TiXmlElement* version = root->FirstChildElement("version");
    if (version == nullptr)
      std::printf("version: none\n");
    else
      std::printf("version: '%s' (line %d)\n", version->GetText() ? version->GetText() : "", version->Row());
    int ordinal = 0;
    for (const TiXmlElement* s = root->FirstChildElement("sbs"); s != nullptr; s = s->NextSiblingElement("sbs"))
      report_section(s, "sbs", ++ordinal, kSbsElements, &report);
    ordinal = 0;
    for (const TiXmlElement* s = root->FirstChildElement("peq"); s != nullptr; s = s->NextSiblingElement("peq"))
      report_section(s, "peq", ++ordinal, kPeqElements, &report);
    bool first_version = true;
    for (const TiXmlElement* e = root->FirstChildElement(); e != nullptr; e = e->NextSiblingElement()) {
      const std::string name = e->Value();
      if (name == "sbs" || name == "peq") continue;
      if (name == "version" && first_version) {
        first_version = false;
        continue;
      }
      std::printf("line %-4d <%s> under <kafxsp>: ignored%s\n", e->Row(), e->Value(),
                  name == "version" ? " (only the first <version> is logged)" : "");
    }
  }
  print_unset(report);
  std::printf("record:\n");
  kafx_sp_params_t record;
  std::memcpy(&record, params, sizeof record);
  dump_lines(record, [](const char* line) { std::printf("  %s\n", line); });
  std::printf("in engineering units:\n");
  for (const std::string& line : kafx_tool::describe_record(record, checked.rate))
    std::printf("  %s\n", line.c_str());
  for (const std::string& note : checked.notes) std::printf("note: %s\n", note.c_str());
  for (const kafx_tool::ConfigFlag& f : checked.flags) {
    if (f.line > 0) std::printf("FLAG line %d: %s\n", f.line, f.text.c_str());
    else std::printf("FLAG: %s\n", f.text.c_str());
  }
  if (checked.flags.empty()) std::printf("nothing flagged\n\n");
  else std::printf("%zu flagged\n\n", checked.flags.size());
  kafx_speaker_boost_params_load_deinit(params);
  return checked.flags.empty() ? 0 : 1;
}

} // namespace

const char* kafx_speaker_config_usage() {
  return "usage: kafx speaker-config FILE...\n"
         "\n"
         "Loads each speaker configuration file as the library does and prints what\n"
         "every element sets (record indices, token counts, tokens that do not scan,\n"
         "surplus tokens, unknown elements, members the file leaves unset), then the\n"
         "parsed record in the layout of kafx_speaker_boost_dump_params and in\n"
         "engineering units (equalizer bands as type, frequency, Q and gain; limiter\n"
         "thresholds in dBFS; gains in dB; times in ms), the hex beside each value.\n"
         "Flags (with their line) every token that does not scan completely, every\n"
         "unknown element and every value that will clip; a malformed document is\n"
         "reported with the line where parsing stopped.\n"
         "Exit status: 0 when every file loads and nothing is flagged, 1 otherwise.\n";
}

int kafx_speaker_config_main(int argc, char** argv) {
  constexpr kafx_tool::Command kConfig{"speaker-config"};
  std::vector<std::string> files;
  if (const int rc = kafx_tool::parse_command_line(
          kConfig, argc, argv, kafx_speaker_config_usage(), {}, [](const std::string&, const char*) { return 0; },
          {1, SIZE_MAX, "FILE..."}, &files);
      rc != 0)
    return rc < 0 ? 0 : rc;
  int status = 0;
  for (const std::string& f : files)
    if (check_file(f.c_str()) != 0) status = 1;
  return status;
}
