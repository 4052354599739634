/*
 * Loading a speaker configuration document with TinyXML, shared by the
 * library's loader and the `kafx speaker-config` checker: the bounded
 * file reader, the structural check of the bytes, and the parse
 * (speaker_config_xml.cpp).
 *
 * A file is accepted when
 *  - it is a regular file of 1 to 1 MiB bytes (read once, without blocking);
 *  - its bytes pass check_xml_bytes (XML characters, UTF-8, bounded nesting,
 *    no comment, CDATA section, declaration or other markup left open);
 *  - TinyXML parses those same bytes without error, the document holds
 *    exactly one top-level element, and nothing but white space follows the
 *    last node TinyXML read (TinyXML stops quietly at stray text).
 * Which element that is ("kafxsp" or not) is the caller's business.
 */
#ifndef KAFX_SPEAKER_SPEAKER_CONFIG_XML_H
#define KAFX_SPEAKER_SPEAKER_CONFIG_XML_H

#include <tinyxml.h>

#include <cstddef>

#include "speaker/speaker_config_parse.h"

namespace kafx::spcfg {

// ---------------------------------------------------------------------------
// Reading a configuration file.

// A tuning file is a few kilobytes; anything past this is not one.
inline constexpr size_t kMaxConfigBytes = 1u << 20;

enum class ReadStatus { ok, cannot_open, not_regular, too_large, read_error, changed, empty };

const char* read_status_text(ReadStatus s);

// Reads a whole regular file of at most kMaxConfigBytes into a malloc'd,
// NUL-terminated buffer (*data, to be freed by the caller; *size excludes the
// terminator). The file is opened without blocking so that a FIFO or device
// path is refused instead of waited on; a file longer than its size said
// when opened (being written, or a /proc file) is refused too.
ReadStatus read_config_file(const char* path, char** data, size_t* size);

// ---------------------------------------------------------------------------
// Structural check of the XML bytes.
//
// TinyXML parses and frees its tree recursively, one stack frame chain per
// nesting level, and reads multi-byte characters by their lead byte. Before a
// document reaches it, the bytes must therefore be
//  - XML characters: no NUL and no C0 control other than tab, CR and LF;
//  - well-formed UTF-8 (no stray continuation byte, no sequence cut short,
//    no overlong form, nothing above U+10FFFF, no surrogate, no U+FFFE or
//    U+FFFF, and a U+FEFF byte-order mark only as the first character);
//  - nested at most kMaxXmlDepth elements deep, with at most
//    kMaxXmlAttributes attributes in one tag (TinyXML looks up every new
//    attribute among the earlier ones, so a tag with thousands of them costs
//    quadratic time).
// The depth walk follows TinyXML 2.6's reading of a document exactly where it
// matters for nesting: what starts an element, a comment, CDATA, a
// declaration or an unknown "<!...>" / "<?...>" node, where each of them
// ends (quoted attribute values, and character references, which TinyXML
// reads from "&#" up to the next ';' whatever lies between), and that an end
// tag closes the open element. Where TinyXML would give up on the document,
// the walk stops too: nothing past that point is parsed. A comment, CDATA
// section, declaration or other "<!" / "<?" markup that is never closed is
// refused here: TinyXML accepts some of them silently at document level.

inline constexpr int kMaxXmlDepth = 64;
inline constexpr int kMaxXmlAttributes = 64;

enum class XmlCheck { ok, control_character, bad_utf8, too_deep, too_many_attributes, unterminated };

const char* xml_check_text(XmlCheck c);

// `text` must be NUL-terminated at text[size].
XmlCheck check_xml_bytes(const char* text, size_t size);

// ---------------------------------------------------------------------------
// The document.

struct DocumentResult {
  bool ok = false;
  ReadStatus read = ReadStatus::ok;
  XmlCheck check = XmlCheck::ok;
  bool parse_error = false;   // TinyXML reported an error
  bool trailing_text = false; // TinyXML stopped before the end of the text
  int top_elements = 0;       // elements at document level
  const char* parser_message = nullptr; // TinyXML's error text, when any
};

// Reads, checks and parses the file at `path` into `doc`.
DocumentResult load_config_document(const char* path, TiXmlDocument* doc);

} // namespace kafx::spcfg

#endif
