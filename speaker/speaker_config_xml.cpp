// Reading, checking and parsing a speaker configuration document (see
// speaker_config_xml.h).
#include "speaker/speaker_config_xml.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace kafx::spcfg {

const char* read_status_text(ReadStatus s) {
  switch (s) {
    case ReadStatus::ok: return "ok";
    case ReadStatus::cannot_open: return "cannot be opened";
    case ReadStatus::not_regular: return "is not a regular file";
    case ReadStatus::too_large: return "is larger than 1 MiB";
    case ReadStatus::read_error: return "cannot be read";
    case ReadStatus::changed: return "grew while it was read";
    case ReadStatus::empty: return "is empty";
  }
  return "?";
}

ReadStatus read_config_file(const char* path, char** data, size_t* size) {
  *data = nullptr;
  *size = 0;
  const int fd = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return ReadStatus::cannot_open;
  struct stat st;
  if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    close(fd);
    return ReadStatus::not_regular;
  }
  if (st.st_size > static_cast<off_t>(kMaxConfigBytes)) {
    close(fd);
    return ReadStatus::too_large;
  }
  // One byte beyond the size shows a file that grew while it was read.
  const size_t expected = static_cast<size_t>(st.st_size);
  char* buf = static_cast<char*>(alloc_zeroed(expected + 2));
  if (buf == nullptr) {
    close(fd);
    return ReadStatus::read_error;
  }
  size_t got = 0;
  while (got < expected + 1) {
    const ssize_t n = read(fd, buf + got, expected + 1 - got);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      std::free(buf);
      close(fd);
      return ReadStatus::read_error;
    }
    if (n == 0) break;
    got += static_cast<size_t>(n);
  }
  close(fd);
  if (got > expected) {
    std::free(buf);
    return ReadStatus::changed;
  }
  if (got == 0) {
    std::free(buf);
    return ReadStatus::empty;
  }
  buf[got] = '\0';
  *data = buf;
  *size = got;
  return ReadStatus::ok;
}

const char* xml_check_text(XmlCheck c) {
  switch (c) {
    case XmlCheck::ok: return "ok";
    case XmlCheck::control_character: return "contains a NUL or control character";
    case XmlCheck::bad_utf8: return "is not valid UTF-8";
    case XmlCheck::too_deep: return "nests elements too deeply";
    case XmlCheck::too_many_attributes: return "has a tag with too many attributes";
    case XmlCheck::unterminated: return "leaves a comment, CDATA section or declaration open";
  }
  return "?";
}

namespace {

bool valid_utf8(const unsigned char* s, size_t n) {
  size_t i = 0;
  while (i < n) {
    const unsigned c = s[i];
    if (c < 0x80) {
      ++i;
      continue;
    }
    size_t len;
    unsigned lo = 0x80, hi = 0xBF; // allowed range of the second byte
    if (c >= 0xC2 && c <= 0xDF) {
      len = 2;
    } else if (c >= 0xE0 && c <= 0xEF) {
      len = 3;
      if (c == 0xE0) lo = 0xA0;
      if (c == 0xED) hi = 0x9F;
    } else if (c >= 0xF0 && c <= 0xF4) {
      len = 4;
      if (c == 0xF0) lo = 0x90;
      if (c == 0xF4) hi = 0x8F;
    } else {
      return false;
    }
    if (n - i < len) return false;
    if (s[i + 1] < lo || s[i + 1] > hi) return false;
    for (size_t k = 2; k < len; ++k)
      if (s[i + k] < 0x80 || s[i + k] > 0xBF) return false;
    if (c == 0xEF) {
      // U+FFFE and U+FFFF are not XML characters; U+FEFF is accepted only
      // as the byte-order mark at the very start (TinyXML skips all three
      // like white space, which would change where a tag name begins).
      if (s[i + 1] == 0xBF && s[i + 2] >= 0xBE) return false;
      if (s[i + 1] == 0xBB && s[i + 2] == 0xBF && i != 0) return false;
    }
    i += len;
  }
  return true;
}

bool is_xml_space(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

// White space, and the byte-order marks TinyXML skips with it.
const char* skip_space(const char* p) {
  for (;;) {
    const auto* u = reinterpret_cast<const unsigned char*>(p);
    if (u[0] == 0xEF && u[1] == 0xBB && u[2] == 0xBF) {
      p += 3;
    } else if (u[0] == 0xEF && u[1] == 0xBF && (u[2] == 0xBE || u[2] == 0xBF)) {
      p += 3;
    } else if (is_xml_space(*p)) {
      ++p;
    } else {
      return p;
    }
  }
}

bool ascii_alpha(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool ascii_digit(char c) { return c >= '0' && c <= '9'; }
bool high_byte(char c) { return static_cast<unsigned char>(c) >= 127; }
bool name_start(char c) { return ascii_alpha(c) || c == '_' || high_byte(c); }
bool name_char(char c) {
  return ascii_alpha(c) || ascii_digit(c) || high_byte(c) || c == '_' || c == '-' || c == '.' || c == ':';
}

bool starts_with(const char* p, const char* s) { return std::strncmp(p, s, std::strlen(s)) == 0; }

bool starts_with_nocase(const char* p, const char* s) {
  for (; *s; ++p, ++s) {
    char c = *p;
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    if (c != *s) return false;
  }
  return true;
}

const char* skip_name(const char* p) {
  while (name_char(*p)) ++p;
  return p;
}

// A '&' inside text or a quoted value: one character reference, one of the
// five predefined entities, or the lone '&'. A numeric reference runs to the
// first ';' and only its last digits are checked (up to the last 'x' or '#'),
// so it may swallow markup. nullptr: TinyXML gives up here.
const char* skip_reference(const char* p) {
  if (p[1] == '#' && p[2] != '\0') {
    if (p[2] == 'x') {
      if (p[3] == '\0') return nullptr;
      const char* semi = std::strchr(p + 3, ';');
      if (semi == nullptr) return nullptr;
      for (const char* q = semi - 1; *q != 'x'; --q)
        if (hex_value(*q) < 0) return nullptr;
      return semi + 1;
    }
    const char* semi = std::strchr(p + 2, ';');
    if (semi == nullptr) return nullptr;
    for (const char* q = semi - 1; *q != '#'; --q)
      if (!ascii_digit(*q)) return nullptr;
    return semi + 1;
  }
  static const char* const kNamed[] = {"&amp;", "&lt;", "&gt;", "&quot;", "&apos;"};
  for (const char* e : kNamed)
    if (starts_with(p, e)) return p + std::strlen(e);
  return p + 1;
}

// Element text from p (not '<') up to the next '<'.
const char* skip_text(const char* p) {
  while (*p != '\0' && *p != '<') {
    if (*p == '&') {
      p = skip_reference(p);
      if (p == nullptr) return nullptr;
    } else {
      ++p;
    }
  }
  return *p == '\0' ? nullptr : p;
}

// One attribute from its name: name, '=', quoted or bare value. Returns the
// position after the value (possibly the end of the text) or nullptr.
const char* skip_attribute(const char* p) {
  p = skip_space(p);
  if (!name_start(*p)) return nullptr;
  p = skip_space(skip_name(p));
  if (*p != '=') return nullptr;
  p = skip_space(p + 1);
  if (*p == '\0') return nullptr;
  if (*p == '"' || *p == '\'') {
    const char quote = *p++;
    while (*p != '\0' && *p != quote) {
      if (*p == '&') {
        p = skip_reference(p);
        if (p == nullptr) return nullptr;
      } else {
        ++p;
      }
    }
    if (*p == '\0' || p[1] == '\0') return nullptr;
    return p + 1;
  }
  while (*p != '\0' && !is_xml_space(*p) && *p != '/' && *p != '>') {
    if (*p == '"' || *p == '\'') return nullptr;
    ++p;
  }
  return p;
}

// "<?xml ...>": keyword attributes are read as attributes (their quotes may
// hold '>'), anything else is skipped word by word up to '>'.
const char* skip_declaration(const char* p) {
  p += 5;
  while (p != nullptr && *p != '\0') {
    if (*p == '>') return p + 1;
    p = skip_space(p);
    if (starts_with_nocase(p, "version") || starts_with_nocase(p, "encoding") ||
        starts_with_nocase(p, "standalone")) {
      p = skip_attribute(p);
    } else {
      while (*p != '\0' && *p != '>' && !is_xml_space(*p)) ++p;
    }
  }
  return nullptr;
}

const char* after(const char* p, const char* terminator) {
  const char* q = std::strstr(p, terminator);
  return q == nullptr ? nullptr : q + std::strlen(terminator);
}

}  // namespace

// `text` must be NUL-terminated at text[size].
XmlCheck check_xml_bytes(const char* text, size_t size) {
  for (size_t i = 0; i < size; ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (c < 0x20 && c != '\t' && c != '\n' && c != '\r') return XmlCheck::control_character;
  }
  if (!valid_utf8(reinterpret_cast<const unsigned char*>(text), size)) return XmlCheck::bad_utf8;

  int depth = 0;
  const char* p = skip_space(text);
  while (p != nullptr && *p != '\0') {
    if (*p != '<') {
      if (depth == 0) break; // text outside the root ends TinyXML's reading
      p = skip_text(p);
      continue;
    }
    if (depth > 0 && p[1] == '/') { // end tag of the open element
      p = after(p, ">");
      --depth;
    } else if (starts_with_nocase(p, "<?xml")) {
      p = skip_declaration(p);
      if (p == nullptr) return XmlCheck::unterminated;
    } else if (starts_with(p, "<!--")) {
      p = after(p + 4, "-->");
      if (p == nullptr) return XmlCheck::unterminated;
    } else if (starts_with(p, "<![CDATA[")) {
      p = after(p + 9, "]]>");
      if (p == nullptr) return XmlCheck::unterminated;
    } else if (name_start(p[1])) {
      if (++depth > kMaxXmlDepth) return XmlCheck::too_deep;
      p = skip_name(p + 1);
      int attributes = 0;
      for (;;) {
        p = skip_space(p);
        if (*p == '>') {
          ++p;
          break;
        }
        if (*p == '/') {
          p = p[1] == '>' ? p + 2 : nullptr;
          --depth;
          break;
        }
        if (++attributes > kMaxXmlAttributes) return XmlCheck::too_many_attributes;
        p = skip_attribute(p);
        if (p == nullptr || *p == '\0') {
          p = nullptr;
          break;
        }
      }
    } else { // "<!...>", "<?...>", "</...>" outside any element, "< ...>"
      p = after(p + 1, ">");
      if (p == nullptr) return XmlCheck::unterminated;
    }
    if (p != nullptr) p = skip_space(p);
  }
  return XmlCheck::ok;
}

DocumentResult load_config_document(const char* path, TiXmlDocument* doc) {
  DocumentResult r;
  char* data = nullptr;
  size_t size = 0;
  r.read = read_config_file(path, &data, &size);
  if (r.read != ReadStatus::ok) return r;
  r.check = check_xml_bytes(data, size);
  if (r.check != XmlCheck::ok) {
    std::free(data);
    return r;
  }
  const char* end = doc->Parse(data, nullptr, TIXML_DEFAULT_ENCODING);
  r.parse_error = doc->Error();
  if (r.parse_error) r.parser_message = doc->ErrorDesc();
  // Parse returns where it stopped, or null when that was the end of the text.
  r.trailing_text = !r.parse_error && end != nullptr && *skip_space(end) != '\0';
  std::free(data);
  for (const TiXmlElement* e = doc->FirstChildElement(); e != nullptr; e = e->NextSiblingElement())
    ++r.top_elements;
  r.ok = !r.parse_error && !r.trailing_text && r.top_elements == 1;
  return r;
}

} // namespace kafx::spcfg
