// A look: everything that decides a picture's pixels besides the base picture. The effects in running
// order (presets opened up), the control vector (as its seed when it came from one), the blend mode
// and the opacity, the size of the render, and the edit steps in the order they were done. The same
// look on the same base gives the same pixels on the command line and in the web app.
//
// Its forms: JSON (look_json.cpp), a compact base64url text for links (look_compact.cpp) and an XMP
// packet inside a picture (xmp.cpp, picture_xmp.cpp). Each reader refuses an unknown version and
// anything malformed with a message, and fills nothing then.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/imaging/blend_modes.h"
#include "core/stack/controls.h"
#include "core/stack/settings.h"

namespace zorvex::look {

// The version of the forms this build writes and reads.
inline constexpr int kVersion = 1;
// Bounds on what a reader takes, so that a hostile look can't ask for unbounded work.
inline constexpr size_t kMaxEffects = 1024;
inline constexpr size_t kMaxEdits = 256;

// What one run of the stack and its composition depend on.
struct Stack {
  std::vector<std::string> effects;  // the names of the kernels, in running order
  std::optional<uint64_t> seed;      // the seed the vector was rolled from, when there is one
  ControlValues controls = ControlValues(kControlCount, 0.0);  // rollControls(*seed) when seeded
  BlendMode blend = BlendMode::normal;
  double opacity = 1.0;

  bool operator==(const Stack&) const = default;
};

// The size of the render: the final at full or half size, or a preview for a view this many pixels
// wide (the command line's --width).
struct RenderSize {
  SaveQuality quality = SaveQuality::full;
  int64_t previewWidth = 0;  // 0: the final

  bool operator==(const RenderSize&) const = default;
};

enum class Edit : uint8_t { rotateLeft, rotateRight, mirrorH, mirrorV, flatten };

struct EditStep {
  Edit edit = Edit::flatten;
  // A flatten done under another stack or save quality than the look's own carries them; absent, the
  // look's own hold.
  std::optional<Stack> stack;
  std::optional<SaveQuality> quality;

  bool operator==(const EditStep&) const = default;
};

struct Look {
  Stack stack;
  RenderSize size;
  std::vector<EditStep> edits;

  bool operator==(const Look&) const = default;
  // The stack and the save quality a flatten step runs with.
  const Stack& stackFor(const EditStep& step) const { return step.stack ? *step.stack : stack; }
  SaveQuality qualityFor(const EditStep& step) const { return step.quality.value_or(size.quality); }
};

// The name a look uses for an effect: the kernel's own name for an older alias ("TRIBOMB" is
// "POLYBOMB"), the name itself for a kernel; nothing for a name without a kernel, which runs nothing.
std::optional<std::string> effectName(std::string_view name);

// A stack whose vector comes from `seed`.
Stack seededStack(std::vector<std::string> effects, uint64_t seed, BlendMode blend, double opacity);

// A control value as the whole number of ten-thousandths it is, or nothing when it is not a multiple
// of 0.0001 from 0 to 0.9999.
std::optional<int> tenThousandths(double value);

// What every look must be: known effects (under their kernel names) and not too many, a vector of
// 1000 multiples of 0.0001 from 0 to 0.9999 (the seed's own when seeded), an opacity from 0 to 1, and
// no flatten in a preview, which runs on the full picture only. False with `error` saying what is wrong.
bool validate(const Look& look, std::string& error);

// Drops from the flatten steps the stack and quality that equal the look's own.
void normalize(Look& look);

// --- JSON (look_json.cpp) ---

// The JSON form: pretty, one key a line, or on one line for packets.
std::string toJson(const Look& look, bool pretty = true);
// Reads and validates a look in the JSON form.
bool fromJson(std::string_view text, Look& out, std::string& error);

// --- The compact form (look_compact.cpp) ---

// The binary form in base64url without padding, for a link's fragment.
std::string toCompact(const Look& look);
bool fromCompact(std::string_view text, Look& out, std::string& error);

// Either form, told apart by its first character ('{' for JSON).
bool fromText(std::string_view text, Look& out, std::string& error);

}  // namespace zorvex::look
