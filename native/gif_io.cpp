#include "native/gif_io.h"

#include <gif_lib.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "native/video_io.h"

namespace zorvex::native {

struct GifWriter::State {
  GifFileType* gif = nullptr;
  int32_t width = 0, height = 0;
  int colors = 256;

  ~State() {
    if (gif) {
      int error = 0;
      EGifCloseFile(gif, &error);
    }
  }
  std::string failure(const char* what) const {
    return std::string(what) + " (" + (gif ? GifErrorString(gif->Error) : "giflib") + ")";
  }
};

GifWriter::GifWriter() : s_(std::make_unique<State>()) {}
GifWriter::~GifWriter() = default;

bool GifWriter::open(const std::string& path, int32_t w, int32_t h, int colors, std::string& error) {
  State& s = *s_;
  if (w < 1 || h < 1 || w > 65535 || h > 65535) {
    error = "a GIF can't be " + std::to_string(w) + "x" + std::to_string(h) + " pixels";
    return false;
  }
  s.width = w;
  s.height = h;
  s.colors = 2;
  while (s.colors * 2 <= std::clamp(colors, 2, 256)) s.colors *= 2;
  int code = 0;
  s.gif = EGifOpenFileName(path.c_str(), false, &code);
  if (!s.gif) {
    error = std::string("can't write it (") + GifErrorString(code) + ")";
    return false;
  }
  EGifSetGifVersion(s.gif, true);
  if (EGifPutScreenDesc(s.gif, w, h, 8, 0, nullptr) == GIF_ERROR) {
    error = s.failure("can't write it");
    return false;
  }
  // Loop for ever: the application extension "NETSCAPE2.0" with a repeat count of 0.
  const GifByteType loop[3] = {1, 0, 0};
  if (EGifPutExtensionLeader(s.gif, APPLICATION_EXT_FUNC_CODE) == GIF_ERROR ||
      EGifPutExtensionBlock(s.gif, 11, "NETSCAPE2.0") == GIF_ERROR || EGifPutExtensionBlock(s.gif, 3, loop) == GIF_ERROR ||
      EGifPutExtensionTrailer(s.gif) == GIF_ERROR) {
    error = s.failure("can't write it");
    return false;
  }
  return true;
}

bool GifWriter::write(const CGImageRef& picture, int delay, std::string& error) {
  State& s = *s_;
  if (!s.gif || !picture) {
    error = "no GIF to write to";
    return false;
  }
  const size_t n = size_t(s.width) * size_t(s.height);
  const std::vector<uint8_t> rgb = scaledRgb(picture, s.width, s.height);
  if (rgb.size() != n * 3) {
    error = "can't scale a frame";
    return false;
  }
  std::vector<GifByteType> r(n), g(n), b(n), indexes(n);
  for (size_t i = 0; i < n; ++i) {
    r[i] = rgb[3 * i];
    g[i] = rgb[3 * i + 1];
    b[i] = rgb[3 * i + 2];
  }
  int size = s.colors;
  std::vector<GifColorType> table(size_t(s.colors));
  if (GifQuantizeBuffer(unsigned(s.width), unsigned(s.height), &size, r.data(), g.data(), b.data(), indexes.data(),
                        table.data()) == GIF_ERROR) {
    error = "can't choose the colours of a frame";
    return false;
  }
  ColorMapObject* map = GifMakeMapObject(s.colors, table.data());
  if (!map) {
    error = "not enough memory for a colour table";
    return false;
  }
  GraphicsControlBlock control{};
  control.DisposalMode = DISPOSE_DO_NOT;
  control.UserInputFlag = false;
  control.DelayTime = std::clamp(delay, 2, 65535);
  control.TransparentColor = NO_TRANSPARENT_COLOR;
  GifByteType extension[4];
  EGifGCBToExtension(&control, extension);
  bool ok = EGifPutExtension(s.gif, GRAPHICS_EXT_FUNC_CODE, 4, extension) != GIF_ERROR &&
            EGifPutImageDesc(s.gif, 0, 0, s.width, s.height, false, map) != GIF_ERROR;
  for (int32_t y = 0; ok && y < s.height; ++y)
    ok = EGifPutLine(s.gif, &indexes[size_t(y) * size_t(s.width)], s.width) != GIF_ERROR;
  GifFreeMapObject(map);
  if (!ok) error = s.failure("can't write it");
  return ok;
}

bool GifWriter::finish(std::string& error) {
  State& s = *s_;
  if (!s.gif) {
    error = "no GIF to write to";
    return false;
  }
  int code = 0;
  const int closed = EGifCloseFile(s.gif, &code);
  s.gif = nullptr;
  if (closed == GIF_ERROR) {
    error = std::string("can't write it (") + GifErrorString(code) + ")";
    return false;
  }
  return true;
}

}  // namespace zorvex::native
