// Speaker configuration: the XML tuning file, the two decimal parameter
// strings, applying a parameter record to the chain and dumping it to the log.
//
// File layout (values are ';'-separated hexadecimal numbers):
//   <kafxsp>
//     <version>text</version>                          optional, logged
//     <sbs> enable gain channel_ration channel_num
//           drc_param_left0..3 drc_param_right0..3 </sbs>   any number
//     <peq> enable gain Lfilter Rfilter </peq>              any number
//   </kafxsp>
// Sections are read in document order, every "sbs" before every "peq"; a
// later element overwrites what an earlier one wrote. Unknown elements are
// ignored, as are elements whose first child is not text (GetText() is null,
// e.g. a comment before the values).
//
// Loading is all or nothing for the record: the file is read and parsed into
// a copy that is stored only after the whole document has been accepted; a
// file that cannot be loaded (see speaker/speaker_config_xml.h) logs
// "LoadAudioConfig fail " at error priority and returns -1 with the record
// and the chain untouched. A document whose root element is not "kafxsp"
// parses nothing but still counts as loaded (0), and loadconfig applies the
// record as it stands. The "parse ... parameters:" lines are logged only when
// the root was found; an empty <version> logs an empty text.
//
// Log lines (tag "kafx_sp_wrapper", debug priority except the load failure)
// name the operation: loading starts with "<entry point>: <path>"
// (kafx_speaker_boost_loadconfig or kafx_speaker_boost_params_load_config);
// applying a whole record (loadconfig, params_update) starts with
// "update_speaker_boost_params"; the partial updates and the dump start with
// their entry point's name. Parsing the parameter strings logs nothing.
//
// Parameter strings: "%d" values separated by ','. They are read into a copy
// of the current record whose part (sbs 0..44 or peq 45..167) is then copied
// back, so a missing or malformed value leaves the member as it was.
//
// Null handles, records, paths and texts are ignored (-1 where an int is
// returned) and log nothing.
#include <android/log.h>
#include <tinyxml.h>

#include <cstdlib>
#include <cstring>

#include "common/lifecycle.h"
#include "kafx_proc/speaker_boost.h"
#include "speaker/speaker_config_parse.h"
#include "speaker/speaker_config_xml.h"

namespace {

using namespace kafx::spcfg;

constexpr const char* kTag = "kafx_sp_wrapper";

#define SP_LOGD(...) __android_log_print(ANDROID_LOG_DEBUG, kTag, __VA_ARGS__)
#define SP_LOGE(...) __android_log_print(ANDROID_LOG_ERROR, kTag, __VA_ARGS__)

unsigned hex_arg(int32_t v) { return static_cast<unsigned>(v); }

template <size_t N>
void parse_section(const TiXmlElement* section, const ElementSlot (&table)[N], FlatParams* flat) {
  for (const TiXmlElement* e = section->FirstChildElement(); e != nullptr; e = e->NextSiblingElement()) {
    const ElementSlot* slot = find_slot(table, e->Value());
    if (slot == nullptr) continue;
    const char* text = e->GetText();
    if (text == nullptr) continue;
    read_hex_list(text, flat->v + slot->first, slot->count);
  }
}

// Loads `path` into *record. Returns 0, or -1 with *record untouched.
int load_file(const char* operation, const char* path, kafx_sp_params_t* record) {
  SP_LOGD("%s: %s", operation, path);
  // A value list that could not be copied would be skipped silently: any
  // failed allocation fails the whole load.
  const kafx::AllocWatch watch;
  TiXmlDocument doc;
  if (!load_config_document(path, &doc).ok) {
    SP_LOGE("LoadAudioConfig fail ");
    return -1;
  }
  FlatParams flat = to_flat(*record);
  const TiXmlElement* root = doc.FirstChildElement("kafxsp");
  if (root != nullptr) {
    if (const TiXmlElement* version = root->FirstChildElement("version")) {
      const char* text = version->GetText();
      SP_LOGD("kafxsp version: %s", text != nullptr ? text : "");
    }
    SP_LOGD("parse sbs parameters:");
    for (const TiXmlElement* s = root->FirstChildElement("sbs"); s != nullptr; s = s->NextSiblingElement("sbs"))
      parse_section(s, kSbsElements, &flat);
    SP_LOGD("parse peq parameters:");
    for (const TiXmlElement* s = root->FirstChildElement("peq"); s != nullptr; s = s->NextSiblingElement("peq"))
      parse_section(s, kPeqElements, &flat);
  }
  if (watch.failed()) {
    SP_LOGE("LoadAudioConfig fail ");
    return -1;
  }
  from_flat(flat, record);
  return 0;
}

// The sbs part: status, harmonic gains, balance ratio, channel count, then the
// eight limiters (low, mid, high, full; left then right).
void apply_sbs(kedo_speaker_boost_t* c, const kafx_sbs_params_t& s, bool log_status) {
  if (log_status) SP_LOGD("status: %d", s.enable);
  kedo_speaker_boost_sbs_setstatus(c, s.enable);
  SP_LOGD("nld_gain: 0x%x 0x%x", hex_arg(s.gain[0]), hex_arg(s.gain[1]));
  kedo_speaker_boost_sbs_set_nld_gain_left(c, s.gain[0]);
  kedo_speaker_boost_sbs_set_nld_gain_right(c, s.gain[1]);
  SP_LOGD("channel_ration: %d", s.channel_ration);
  kedo_speaker_boost_cb_set_channel_ration(c, s.channel_ration);
  SP_LOGD("channel_num: %d", s.channel_num);
  kedo_speaker_boost_set_channel_num(c, s.channel_num);
  kedo_speaker_boost_sbs_set_drc_low_left(c, &s.drc_left[0]);
  kedo_speaker_boost_sbs_set_drc_mid_left(c, &s.drc_left[1]);
  kedo_speaker_boost_sbs_set_drc_high_left(c, &s.drc_left[2]);
  kedo_speaker_boost_sbs_set_drc_full_left(c, &s.drc_left[3]);
  kedo_speaker_boost_sbs_set_drc_low_right(c, &s.drc_right[0]);
  kedo_speaker_boost_sbs_set_drc_mid_right(c, &s.drc_right[1]);
  kedo_speaker_boost_sbs_set_drc_high_right(c, &s.drc_right[2]);
  kedo_speaker_boost_sbs_set_drc_full_right(c, &s.drc_right[3]);
}

// The peq part: status, input gains, left bands, right bands.
void apply_peq(kedo_speaker_boost_t* c, const kafx_peq_params_t& q, bool log_status) {
  if (log_status) SP_LOGD("status: %d", q.enable);
  kedo_speaker_boost_p_eq_setstatus(c, q.enable);
  SP_LOGD("peq_gain: 0x%x 0x%x", hex_arg(q.gain[0]), hex_arg(q.gain[1]));
  kedo_speaker_boost_p_eq_set_gain_left(c, q.gain[0]);
  kedo_speaker_boost_p_eq_set_gain_right(c, q.gain[1]);
  kedo_speaker_boost_p_eq_setparameter_left(c, q.Lfilter);
  kedo_speaker_boost_p_eq_setparameter_right(c, q.Rfilter);
}

void apply_record(kafx_speaker_boost_t* h) {
  SP_LOGD("%s", "update_speaker_boost_params");
  apply_sbs(&h->chain, h->params.sbs, false);
  apply_peq(&h->chain, h->params.peq, false);
}

// Parameter strings: the tokens are read into a copy of the current record,
// then the part [first, first + count) is copied back, so a missing or
// malformed token leaves its member as it was.
void parse_part(void* params, const char* text, int first, int count) {
  if (params == nullptr || text == nullptr) return;
  auto* record = static_cast<kafx_sp_params_t*>(params);
  FlatParams scratch = to_flat(*record);
  read_dec_list(text, scratch.v + first, count);
  std::memcpy(reinterpret_cast<char*>(record) + static_cast<size_t>(first) * sizeof(int32_t), scratch.v + first,
              static_cast<size_t>(count) * sizeof(int32_t));
}

} // namespace

extern "C" {

KAFX_API int kafx_speaker_boost_loadconfig(void* handle, const char* path) {
  if (handle == nullptr || path == nullptr) return -1;
  auto* h = static_cast<kafx_speaker_boost_t*>(handle);
  if (load_file("kafx_speaker_boost_loadconfig", path, &h->params) != 0) return -1;
  apply_record(h);
  return 0;
}

KAFX_API void* kafx_speaker_boost_params_load_init(void) {
  // Zeroed, so a record dumped or applied before anything was loaded holds
  // defined values.
  return kafx::alloc_record<kafx_sp_params_t>();
}

KAFX_API void kafx_speaker_boost_params_load_deinit(void* params) { std::free(params); }

KAFX_API int kafx_speaker_boost_params_load_config(void* params, const char* path) {
  if (params == nullptr || path == nullptr) return -1;
  return load_file("kafx_speaker_boost_params_load_config", path, static_cast<kafx_sp_params_t*>(params));
}

KAFX_API void kafx_speaker_boost_params_update(void* handle, void* params) {
  if (handle == nullptr || params == nullptr) return;
  auto* h = static_cast<kafx_speaker_boost_t*>(handle);
  std::memmove(&h->params, params, sizeof(kafx_sp_params_t));
  apply_record(h);
}

KAFX_API void kafx_speaker_boost_update_sbs_params(void* handle, void* sbs) {
  if (handle == nullptr || sbs == nullptr) return;
  auto* h = static_cast<kafx_speaker_boost_t*>(handle);
  kafx_sbs_params_t s;
  std::memcpy(&s, sbs, sizeof s);
  SP_LOGD("%s", "kafx_speaker_boost_update_sbs_params");
  apply_sbs(&h->chain, s, true);
}

KAFX_API void kafx_speaker_boost_update_peq_params(void* handle, void* params) {
  if (handle == nullptr || params == nullptr) return;
  auto* h = static_cast<kafx_speaker_boost_t*>(handle);
  kafx_sp_params_t record;
  std::memcpy(&record, params, sizeof record);
  SP_LOGD("%s", "kafx_speaker_boost_update_peq_params");
  apply_peq(&h->chain, record.peq, true);
}

KAFX_API void kafx_speaker_boost_parse_sbs_params(void* params, const char* text) {
  parse_part(params, text, kSbsFirst, kSbsCount);
}

KAFX_API void kafx_speaker_boost_parse_peq_params(void* params, const char* text) {
  parse_part(params, text, kPeqFirst, kPeqCount);
}

KAFX_API void kafx_speaker_boost_dump_params(void* params) {
  if (params == nullptr) return;
  kafx_sp_params_t record;
  std::memcpy(&record, params, sizeof record);
  SP_LOGD("%s", "kafx_speaker_boost_dump_params");
  dump_lines(record, [](const char* line) { SP_LOGD("%s", line); });
}

} // extern "C"
