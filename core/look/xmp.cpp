#include "core/look/xmp.h"

#include <array>
#include <cstring>

#include "core/look/json.h"

namespace zorvex::look {
namespace {

constexpr std::string_view kJpegXmpHeader{"http://ns.adobe.com/xap/1.0/\0", 29};
constexpr std::string_view kPngXmpKeyword = "XML:com.adobe.xmp";
constexpr std::array<uint8_t, 8> kPngSignature = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
// A JPEG segment's length counts itself (2 bytes) and at most 65535 bytes in all.
constexpr size_t kMaxJpegPacket = 65535 - 2 - kJpegXmpHeader.size();

std::string xmlEscape(std::string_view s) {
  std::string out;
  for (char c : s) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      default: out += c;
    }
  }
  return out;
}

// XML's five named entities and character references; false for any other '&'.
bool xmlUnescape(std::string_view s, std::string& out) {
  out.clear();
  for (size_t i = 0; i < s.size(); ++i) {
    if (s[i] != '&') {
      out += s[i];
      continue;
    }
    const size_t end = s.find(';', i);
    if (end == std::string_view::npos || end - i > 12) return false;
    const std::string_view name = s.substr(i + 1, end - i - 1);
    if (name == "amp") out += '&';
    else if (name == "lt") out += '<';
    else if (name == "gt") out += '>';
    else if (name == "quot") out += '"';
    else if (name == "apos") out += '\'';
    else if (name.size() >= 2 && name[0] == '#') {
      const bool hex = name[1] == 'x';
      const std::string_view digits = name.substr(hex ? 2 : 1);
      if (digits.empty()) return false;
      uint32_t cp = 0;
      for (char c : digits) {
        int d;
        if (c >= '0' && c <= '9') d = c - '0';
        else if (hex && c >= 'a' && c <= 'f') d = c - 'a' + 10;
        else if (hex && c >= 'A' && c <= 'F') d = c - 'A' + 10;
        else return false;
        cp = cp * (hex ? 16 : 10) + uint32_t(d);
        if (cp > 0x10FFFF) return false;
      }
      json::appendUtf8(cp, out);
    } else {
      return false;
    }
    i = end;
  }
  return true;
}

bool isNameChar(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-' || c == '.';
}

// The prefix the packet declares for our namespace (xmlns:PREFIX="URI"), or empty.
std::string declaredPrefix(std::string_view xml) {
  for (const char quote : {'"', '\''}) {
    const std::string value = quote + std::string(kNamespace) + quote;
    for (size_t at = xml.find(value); at != std::string_view::npos; at = xml.find(value, at + 1)) {
      size_t i = at;
      while (i > 0 && (xml[i - 1] == ' ' || xml[i - 1] == '\t' || xml[i - 1] == '\n' || xml[i - 1] == '\r')) --i;
      if (i == 0 || xml[i - 1] != '=') continue;
      --i;
      while (i > 0 && (xml[i - 1] == ' ' || xml[i - 1] == '\t' || xml[i - 1] == '\n' || xml[i - 1] == '\r')) --i;
      const size_t end = i;
      while (i > 0 && isNameChar(xml[i - 1])) --i;
      if (i < 6 || xml.substr(i - 6, 6) != "xmlns:" || i == end) continue;
      return std::string(xml.substr(i, end - i));
    }
  }
  return {};
}

uint32_t crc32(const uint8_t* data, size_t n, uint32_t crc = 0) {
  static const auto table = [] {
    std::array<uint32_t, 256> t{};
    for (uint32_t i = 0; i < 256; ++i) {
      uint32_t c = i;
      for (int k = 0; k < 8; ++k) c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
      t[i] = c;
    }
    return t;
  }();
  crc = ~crc;
  for (size_t i = 0; i < n; ++i) crc = table[(crc ^ data[i]) & 0xFF] ^ (crc >> 8);
  return ~crc;
}

uint32_t be32(const uint8_t* p) { return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3]; }
void putBe32(std::vector<uint8_t>& out, uint32_t v) {
  for (int s = 24; s >= 0; s -= 8) out.push_back(uint8_t(v >> s));
}

bool isPng(std::span<const uint8_t> f) {
  return f.size() >= 8 && std::memcmp(f.data(), kPngSignature.data(), 8) == 0;
}
bool isJpeg(std::span<const uint8_t> f) { return f.size() >= 3 && f[0] == 0xFF && f[1] == 0xD8 && f[2] == 0xFF; }

// The segments of a JPEG before its image data, as they come: what `body` is told of each is its marker
// and the span of the whole segment. Stops at the start of scan (or the end of the image), whose offset
// goes to `rest`. False with `error` on a segment that runs past the file.
template <class Body>
bool jpegSegments(std::span<const uint8_t> f, size_t& rest, std::string& error, Body body) {
  size_t i = 2;
  for (;;) {
    if (i >= f.size() || f[i] != 0xFF) {
      error = "the JPEG's structure is damaged (no marker where one should be)";
      return false;
    }
    size_t m = i;
    while (m + 1 < f.size() && f[m + 1] == 0xFF) ++m;  // fill bytes
    if (m + 1 >= f.size()) {
      error = "the JPEG ends before its picture";
      return false;
    }
    const uint8_t marker = f[m + 1];
    if (marker == 0xDA || marker == 0xD9) {
      rest = i;
      return true;
    }
    if ((marker >= 0xD0 && marker <= 0xD7) || marker == 0x01) {  // no length
      body(marker, f.subspan(i, m + 2 - i));
      i = m + 2;
      continue;
    }
    if (m + 3 >= f.size()) {
      error = "the JPEG ends before its picture";
      return false;
    }
    const size_t length = size_t(f[m + 2]) << 8 | f[m + 3];
    if (length < 2 || m + 2 + length > f.size()) {
      error = "the JPEG's structure is damaged (a segment runs past its end)";
      return false;
    }
    body(marker, f.subspan(i, m + 2 + length - i));
    i = m + 2 + length;
  }
}

// Where a segment's content starts: after the marker (and any fill bytes before it) and the length.
size_t segmentContent(std::span<const uint8_t> segment) {
  size_t start = 0;
  while (start + 1 < segment.size() && segment[start + 1] == 0xFF) ++start;
  return start + 4;
}

bool isJpegXmp(uint8_t marker, std::span<const uint8_t> segment) {
  if (marker != 0xE1) return false;
  const size_t start = segmentContent(segment);
  return segment.size() >= start + kJpegXmpHeader.size() &&
         std::memcmp(segment.data() + start, kJpegXmpHeader.data(), kJpegXmpHeader.size()) == 0;
}

// The chunks of a PNG: `body` is told each chunk's type and the span of its data, and the span of the
// whole chunk. False with `error` on a chunk that runs past the file or fails its check sum.
template <class Body>
bool pngChunks(std::span<const uint8_t> f, std::string& error, Body body) {
  size_t i = 8;
  while (i + 12 <= f.size()) {
    const size_t length = be32(&f[i]);
    if (length > f.size() - i - 12) {
      error = "the PNG's structure is damaged (a chunk runs past its end)";
      return false;
    }
    const std::string_view type(reinterpret_cast<const char*>(&f[i + 4]), 4);
    if (crc32(&f[i + 4], length + 4) != be32(&f[i + 8 + length])) {
      error = "the PNG's " + std::string(type) + " chunk is damaged (its check sum is wrong)";
      return false;
    }
    body(type, f.subspan(i + 8, length), f.subspan(i, length + 12));
    if (type == "IEND") return true;
    i += length + 12;
  }
  error = "the PNG ends before its IEND chunk";
  return false;
}

// The text of an iTXt chunk that holds XMP; false for another keyword.
bool pngXmpText(std::span<const uint8_t> data, std::string& text, std::string& error) {
  const std::string_view d(reinterpret_cast<const char*>(data.data()), data.size());
  const size_t keywordEnd = d.find('\0');
  if (keywordEnd == std::string_view::npos || d.substr(0, keywordEnd) != kPngXmpKeyword) return false;
  if (d.size() < keywordEnd + 3) {
    error = "the PNG's XMP chunk is damaged";
    return false;
  }
  if (d[keywordEnd + 1] != 0) {
    error = "the PNG's XMP is compressed, which this version doesn't read";
    return false;
  }
  const size_t languageEnd = d.find('\0', keywordEnd + 3);
  const size_t translatedEnd = languageEnd == std::string_view::npos ? languageEnd : d.find('\0', languageEnd + 1);
  if (translatedEnd == std::string_view::npos) {
    error = "the PNG's XMP chunk is damaged";
    return false;
  }
  text = std::string(d.substr(translatedEnd + 1));
  return true;
}

}  // namespace

std::string xmpPacket(const Look& look) {
  std::string out = "<?xpacket begin=\"\xEF\xBB\xBF\" id=\"W5M0MpCehiHzreSzNTczkc9d\"?>\n";
  out += "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\">\n";
  out += " <rdf:RDF xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\">\n";
  out += "  <rdf:Description rdf:about=\"\"\n    xmlns:" + std::string(kPrefix) + "=\"" + std::string(kNamespace) + "\">\n";
  out += "   <" + std::string(kPrefix) + ":look>" + xmlEscape(toJson(look, false)) + "</" + std::string(kPrefix) +
         ":look>\n";
  out += "  </rdf:Description>\n </rdf:RDF>\n</x:xmpmeta>\n<?xpacket end=\"w\"?>";
  return out;
}

Found lookFromXmp(std::string_view xml, Look& out, std::string& error) {
  const std::string prefix = declaredPrefix(xml);
  if (prefix.empty()) return Found::none;
  const std::string name = prefix + ":look";
  std::string_view raw;
  bool found = false;
  // As an element: <zorvex:look>text</zorvex:look>.
  for (size_t at = xml.find("<" + name); at != std::string_view::npos; at = xml.find("<" + name, at + 1)) {
    const size_t after = at + 1 + name.size();
    if (after >= xml.size() || isNameChar(xml[after]) || xml[after] == ':') continue;
    const size_t open = xml.find('>', after);
    if (open == std::string_view::npos) break;
    if (xml[open - 1] == '/') {
      error = "the picture's look is empty";
      return Found::error;
    }
    const size_t close = xml.find("</" + name, open);
    if (close == std::string_view::npos) break;
    raw = xml.substr(open + 1, close - open - 1);
    found = true;
    break;
  }
  // As an attribute: zorvex:look="text".
  if (!found) {
    for (size_t at = xml.find(name); at != std::string_view::npos; at = xml.find(name, at + 1)) {
      if (at == 0 || isNameChar(xml[at - 1]) || xml[at - 1] == ':' || xml[at - 1] == '/' || xml[at - 1] == '<')
        continue;
      size_t i = at + name.size();
      while (i < xml.size() && (xml[i] == ' ' || xml[i] == '\n' || xml[i] == '\t' || xml[i] == '\r')) ++i;
      if (i >= xml.size() || xml[i] != '=') continue;
      ++i;
      while (i < xml.size() && (xml[i] == ' ' || xml[i] == '\n' || xml[i] == '\t' || xml[i] == '\r')) ++i;
      if (i >= xml.size() || (xml[i] != '"' && xml[i] != '\'')) continue;
      const size_t end = xml.find(xml[i], i + 1);
      if (end == std::string_view::npos) break;
      raw = xml.substr(i + 1, end - i - 1);
      found = true;
      break;
    }
  }
  if (!found) return Found::none;
  std::string text;
  if (raw.find('<') != std::string_view::npos || !xmlUnescape(raw, text)) {
    error = "the picture's look is not plain text in its XMP";
    return Found::error;
  }
  Look look;
  if (!fromJson(text, look, error)) return Found::error;
  out = std::move(look);
  return Found::look;
}

bool findXmp(std::span<const uint8_t> f, std::string& packet, std::string& error) {
  error.clear();
  bool found = false;
  if (isJpeg(f)) {
    size_t rest;
    const bool whole = jpegSegments(f, rest, error, [&](uint8_t marker, std::span<const uint8_t> segment) {
      if (found || !isJpegXmp(marker, segment)) return;
      const size_t start = segmentContent(segment) + kJpegXmpHeader.size();
      packet.assign(reinterpret_cast<const char*>(segment.data() + start), segment.size() - start);
      found = true;
    });
    return whole ? found : (found && (error.clear(), true));
  }
  if (isPng(f)) {
    std::string chunkError;
    const bool whole = pngChunks(f, error, [&](std::string_view type, std::span<const uint8_t> data, std::span<const uint8_t>) {
      if (found || type != "iTXt" || !chunkError.empty()) return;
      found = pngXmpText(data, packet, chunkError);
    });
    if (!chunkError.empty()) {
      error = chunkError;
      return false;
    }
    return whole ? found : (found && (error.clear(), true));
  }
  error = f.empty() ? "the file is empty" : "not a PNG or JPEG picture";
  return false;
}

Found lookInPicture(std::span<const uint8_t> file, Look& out, std::string& error) {
  std::string packet;
  if (!findXmp(file, packet, error)) return error.empty() ? Found::none : Found::error;
  return lookFromXmp(packet, out, error);
}

bool embedXmp(std::span<const uint8_t> f, std::string_view packet, std::vector<uint8_t>& out, std::string& error) {
  out.clear();
  if (isJpeg(f)) {
    if (packet.size() > kMaxJpegPacket) {
      error = "the look is too large for a JPEG's XMP segment";
      return false;
    }
    std::vector<std::span<const uint8_t>> leading, kept;  // JFIF comes first; the rest after the packet
    size_t rest;
    if (!jpegSegments(f, rest, error, [&](uint8_t marker, std::span<const uint8_t> segment) {
          if (marker == 0xE1 || marker == 0xED || marker == 0xFE) return;  // APP1, APP13, COM
          (marker == 0xE0 && kept.empty() ? leading : kept).push_back(segment);
        }))
      return false;
    out.insert(out.end(), f.begin(), f.begin() + 2);
    for (auto s : leading) out.insert(out.end(), s.begin(), s.end());
    const size_t length = 2 + kJpegXmpHeader.size() + packet.size();
    out.insert(out.end(), {0xFF, 0xE1, uint8_t(length >> 8), uint8_t(length & 0xFF)});
    out.insert(out.end(), kJpegXmpHeader.begin(), kJpegXmpHeader.end());
    out.insert(out.end(), packet.begin(), packet.end());
    for (auto s : kept) out.insert(out.end(), s.begin(), s.end());
    out.insert(out.end(), f.begin() + ptrdiff_t(rest), f.end());
    return true;
  }
  if (isPng(f)) {
    std::vector<uint8_t> chunk;
    putBe32(chunk, uint32_t(kPngXmpKeyword.size() + 5 + packet.size()));
    const std::string head = std::string("iTXt") + std::string(kPngXmpKeyword) + std::string(5, '\0');
    chunk.insert(chunk.end(), head.begin(), head.end());
    chunk.insert(chunk.end(), packet.begin(), packet.end());
    putBe32(chunk, crc32(chunk.data() + 4, chunk.size() - 4));
    out.insert(out.end(), f.begin(), f.begin() + 8);
    const bool whole = pngChunks(f, error, [&](std::string_view type, std::span<const uint8_t>, std::span<const uint8_t> whole) {
      if (type == "tEXt" || type == "zTXt" || type == "iTXt" || type == "eXIf" || type == "tIME") return;
      out.insert(out.end(), whole.begin(), whole.end());
      if (type == "IHDR") out.insert(out.end(), chunk.begin(), chunk.end());
    });
    if (!whole) out.clear();
    return whole;
  }
  error = f.empty() ? "the file is empty" : "not a PNG or JPEG picture";
  return false;
}

}  // namespace zorvex::look
