#include "wav_io.h"

#include <sndfile.h>

namespace kafx_tool {

namespace {

int bits_of_subtype(int format) {
  switch (format & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_PCM_16: return 16;
    case SF_FORMAT_PCM_24: return 24;
    case SF_FORMAT_PCM_32: return 32;
    default: return 0;
  }
}

int subtype_of_bits(int bits) {
  switch (bits) {
    case 16: return SF_FORMAT_PCM_16;
    case 24: return SF_FORMAT_PCM_24;
    case 32: return SF_FORMAT_PCM_32;
    default: return 0;
  }
}

}  // namespace

bool read_pcm(const std::string& path, PcmAudio* audio, std::string* error) {
  SF_INFO info{};
  SNDFILE* f = sf_open(path.c_str(), SFM_READ, &info);
  if (f == nullptr) {
    *error = "cannot open '" + path + "': " + sf_strerror(nullptr);
    return false;
  }
  const int bits = bits_of_subtype(info.format);
  bool ok = true;
  if (bits == 0) {
    *error = "'" + path + "' is not 16-, 24- or 32-bit integer PCM";
    ok = false;
  } else if (info.channels < 1 || info.samplerate < 1) {
    *error = "'" + path + "' has no channels or no sample rate";
    ok = false;
  }
  if (ok) {
    audio->rate = info.samplerate;
    audio->channels = info.channels;
    audio->bits = bits;
    audio->samples.assign(static_cast<size_t>(info.frames) * static_cast<size_t>(info.channels), 0);
    const sf_count_t got = sf_readf_int(f, audio->samples.data(), info.frames);
    if (got != info.frames) {
      *error = "short read from '" + path + "'";
      ok = false;
    }
  }
  sf_close(f);
  return ok;
}

bool write_pcm_wav(const std::string& path, const PcmAudio& audio, std::string* error) {
  SF_INFO info{};
  info.samplerate = audio.rate;
  info.channels = audio.channels;
  info.format = SF_FORMAT_WAV | subtype_of_bits(audio.bits);
  SNDFILE* f = sf_open(path.c_str(), SFM_WRITE, &info);
  if (f == nullptr) {
    *error = "cannot create '" + path + "': " + sf_strerror(nullptr);
    return false;
  }
  const sf_count_t frames = audio.frames();
  const bool ok = sf_writef_int(f, audio.samples.data(), frames) == frames;
  if (!ok) *error = "write error on '" + path + "': " + sf_strerror(f);
  sf_close(f);
  return ok;
}

}  // namespace kafx_tool
