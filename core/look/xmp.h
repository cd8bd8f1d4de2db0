// A look inside a picture: an XMP packet that holds the look's JSON as the property "look" of our own
// namespace, carried where other tools look for XMP. In a JPEG, the standard APP1 segment that begins
// "http://ns.adobe.com/xap/1.0/"; in a PNG, the iTXt chunk with the keyword "XML:com.adobe.xmp".
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "core/look/look.h"

namespace zorvex::look {

inline constexpr std::string_view kNamespace = "http://ns.zorvex.app/look/1.0/";
inline constexpr std::string_view kPrefix = "zorvex";

// The XMP packet of a look.
std::string xmpPacket(const Look& look);

enum class Found { none, look, error };

// The look in an XMP packet: none when the packet has no property of our namespace, an error (with
// `error` saying why) when it has one that is no valid look.
Found lookFromXmp(std::string_view packet, Look& out, std::string& error);

// The XMP packet of a JPEG or PNG file; false when it has none. A file that is neither, or whose
// structure is damaged before its packet, is an error (false with `error` set).
bool findXmp(std::span<const uint8_t> file, std::string& packet, std::string& error);

// The look of a JPEG or PNG file.
Found lookInPicture(std::span<const uint8_t> file, Look& out, std::string& error);

// The file with `packet` as its XMP, in place of any it had. Whatever else could tell about a person
// or the original picture goes too: in a JPEG every other APP1 segment (EXIF, with its location and
// camera), APP13 (IPTC) and comments; in a PNG the text chunks, eXIf and tIME. False with `error`
// set for a file that is neither a JPEG nor a PNG, or a packet too large for a JPEG segment.
bool embedXmp(std::span<const uint8_t> file, std::string_view packet, std::vector<uint8_t>& out, std::string& error);

}  // namespace zorvex::look
