#include "native/image_io.h"

#include <png.h>
#include <setjmp.h>
#include <jpeglib.h>
#include <jerror.h>
#include <libexif/exif-data.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "core/imaging/blend.h"
#include "core/look/xmp.h"
#include "native/atomic_file.h"
#include "native/input_file.h"

namespace zorvex::native {
namespace {

std::string lower(std::string s) {
  for (char& c : s) c = char(std::tolower(static_cast<unsigned char>(c)));
  return s;
}
bool endsWith(const std::string& s, const std::string& tail) {
  return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}
bool isJpegPath(const std::string& path) {
  const std::string p = lower(path);
  return endsWith(p, ".jpg") || endsWith(p, ".jpeg");
}

std::string sizeCheck(uint64_t w, uint64_t h, int64_t maxPixels) {
  if (w == 0 || h == 0) return "the picture has no pixels";
  if (w > uint64_t(kMaxSide) || h > uint64_t(kMaxSide) || w * h > uint64_t(maxPixels))
    return "the picture is too large (" + std::to_string(w) + "x" + std::to_string(h) + "; at most " +
           std::to_string(kMaxPixels / 1'000'000) + " megapixels and " + std::to_string(kMaxSide) + " pixels a side)";
  return {};
}

CGImageRef makeImage(std::shared_ptr<uint8_t[]> pixels, int32_t w, int32_t h, PixelFormat f) {
  const PixelView view{pixels.get(), w, h, ptrdiff_t(w) * 4, f};
  return std::make_shared<const CGImage>(std::shared_ptr<const uint8_t[]>(std::move(pixels)), view);
}

CGImageRef readPng(FILE* stream, std::string& error, int64_t maxPixels) {
  png_image image;
  std::memset(&image, 0, sizeof image);
  image.version = PNG_IMAGE_VERSION;
  if (!png_image_begin_read_from_stdio(&image, stream)) {
    error = std::string("not a readable PNG picture (") + image.message + ")";
    return nullptr;
  }
  if (std::string e = sizeCheck(image.width, image.height, maxPixels); !e.empty()) {
    png_image_free(&image);
    error = e;
    return nullptr;
  }
  image.format = PNG_FORMAT_RGBA;
  std::shared_ptr<uint8_t[]> pixels(new (std::nothrow) uint8_t[PNG_IMAGE_SIZE(image)]);
  if (!pixels) {
    png_image_free(&image);
    error = "not enough memory for the picture";
    return nullptr;
  }
  if (!png_image_finish_read(&image, nullptr, pixels.get(), 0, nullptr)) {
    error = std::string("the PNG data is damaged (") + image.message + ")";
    return nullptr;
  }
  // Premultiply; an opaque picture becomes RGBX.
  const size_t n = size_t(image.width) * image.height;
  bool opaque = true;
  for (size_t i = 0; i < n; ++i) {
    uint8_t* p = &pixels[i * 4];
    if (p[3] != 255) {
      opaque = false;
      for (int c = 0; c < 3; ++c) p[c] = uint8_t(raster::div255(p[c] * uint32_t{p[3]}));
    }
  }
  return makeImage(std::move(pixels), int32_t(image.width), int32_t(image.height),
                   opaque ? PixelFormat::RGBX : PixelFormat::RGBA);
}

struct JpegError {
  jpeg_error_mgr mgr;
  jmp_buf jump;
  char message[JMSG_LENGTH_MAX];
  bool endedEarly = false;  // the data stopped before the picture's end
  bool damaged = false;     // some of the data could not be decoded
};
void onJpegError(j_common_ptr cinfo) {
  auto* err = reinterpret_cast<JpegError*>(cinfo->err);
  (*cinfo->err->format_message)(cinfo, err->message);
  longjmp(err->jump, 1);
}
// Warnings (level -1) say that the data is damaged or ended early; the decoder goes on with what it
// has, and so do we, but the user is told. Trace messages are dropped.
void noteJpegWarning(j_common_ptr cinfo, int level) {
  if (level != -1) return;
  auto* err = reinterpret_cast<JpegError*>(cinfo->err);
  if (cinfo->err->msg_code == JWRN_JPEG_EOF) {
    err->endedEarly = true;
  } else {
    err->damaged = true;
  }
}

// A progressive JPEG may list any number of scans, each a pass over the whole picture: a few bytes a
// scan could keep the decoder busy for minutes. Pictures from cameras and encoders have a few dozen at
// most.
constexpr int kMaxJpegScans = 500;

// Everything that changes after setjmp lives behind this pointer, so that a longjmp leaves no local
// in an unknown state.
struct JpegRead {
  jpeg_decompress_struct cinfo;
  JpegError err;
  jpeg_progress_mgr progress;
  std::shared_ptr<uint8_t[]> pixels;
  std::vector<uint8_t> row;
  std::string error;
  UIImageOrientation orientation = UIImageOrientationUp;
};

// The orientation tag of an EXIF segment ("Exif\0\0" and a TIFF structure).
UIImageOrientation exifOrientation(const uint8_t* bytes, size_t size) {
  ExifData* data = exif_data_new_from_data(bytes, static_cast<unsigned int>(size));
  if (!data) return UIImageOrientationUp;
  UIImageOrientation o = UIImageOrientationUp;
  if (ExifEntry* e = exif_data_get_entry(data, EXIF_TAG_ORIENTATION); e && e->format == EXIF_FORMAT_SHORT && e->size >= 2) {
    switch (exif_get_short(e->data, exif_data_get_byte_order(data))) {
      case 2: o = UIImageOrientationUpMirrored; break;
      case 3: o = UIImageOrientationDown; break;
      case 4: o = UIImageOrientationDownMirrored; break;
      case 5: o = UIImageOrientationLeftMirrored; break;
      case 6: o = UIImageOrientationRight; break;
      case 7: o = UIImageOrientationRightMirrored; break;
      case 8: o = UIImageOrientationLeft; break;
      default: break;
    }
  }
  exif_data_unref(data);
  return o;
}

// CMYK (or YCCK, which the decoder turns into CMYK) to RGB, without a colour profile. Adobe's
// programs store the values inverted (255 is no ink) and mark the file so.
void cmykToRgbx(const uint8_t* in, uint8_t* out, uint32_t w, bool inverted) {
  for (uint32_t x = 0; x < w; ++x, in += 4, out += 4) {
    const uint32_t k = inverted ? in[3] : 255u - in[3];
    for (int c = 0; c < 3; ++c) out[c] = uint8_t(raster::div255((inverted ? in[c] : 255u - in[c]) * k));
    out[3] = 255;
  }
}

// Called by the decoder as it goes: stops a stream of more scans than a picture has.
void checkScans(j_common_ptr cinfo) {
  auto* d = reinterpret_cast<j_decompress_ptr>(cinfo);
  if (d->input_scan_number <= kMaxJpegScans) return;
  auto* s = static_cast<JpegRead*>(d->client_data);
  s->error = "the JPEG data holds more than " + std::to_string(kMaxJpegScans) +
             " scans, more than any picture needs; it is not read";
  longjmp(s->err.jump, 1);
}

CGImageRef readJpeg(FILE* stream, std::string& error, std::string* warning, UIImageOrientation& orientation,
                    int64_t maxPixels) {
  auto s = std::make_unique<JpegRead>();
  s->cinfo.err = jpeg_std_error(&s->err.mgr);
  s->err.mgr.error_exit = onJpegError;
  s->err.mgr.emit_message = noteJpegWarning;
  if (setjmp(s->err.jump)) {
    jpeg_destroy_decompress(&s->cinfo);
    if (!s->error.empty()) {
      error = s->error;
    } else if (s->err.endedEarly) {
      error = std::string("the JPEG data ends before the picture begins (") + s->err.message + ")";
    } else {
      error = std::string("the JPEG data is damaged (") + s->err.message + ")";
    }
    return nullptr;
  }
  jpeg_create_decompress(&s->cinfo);
  s->cinfo.client_data = s.get();
  s->progress.progress_monitor = checkScans;
  s->cinfo.progress = &s->progress;
  jpeg_stdio_src(&s->cinfo, stream);
  jpeg_save_markers(&s->cinfo, JPEG_APP0 + 1, 0xFFFF);
  jpeg_read_header(&s->cinfo, TRUE);
  // No local with a destructor may be in scope at a longjmp: the message goes straight to `s`.
  s->error = sizeCheck(s->cinfo.image_width, s->cinfo.image_height, maxPixels);
  if (!s->error.empty()) longjmp(s->err.jump, 1);
  for (jpeg_saved_marker_ptr m = s->cinfo.marker_list; m; m = m->next) {
    if (m->marker == JPEG_APP0 + 1 && m->data_length > 6 && std::memcmp(m->data, "Exif\0\0", 6) == 0) {
      s->orientation = exifOrientation(m->data, m->data_length);
      break;
    }
  }
  const J_COLOR_SPACE space = s->cinfo.jpeg_color_space;
  const bool cmyk = space == JCS_CMYK || space == JCS_YCCK;
  if (!cmyk && space != JCS_GRAYSCALE && space != JCS_YCbCr && space != JCS_RGB) {
    s->error = "a JPEG of " + std::to_string(s->cinfo.num_components) +
               " colour components in no colour space Zorvex knows; only grey, RGB, YCbCr and CMYK are read";
    longjmp(s->err.jump, 1);
  }
  s->cinfo.out_color_space = cmyk ? JCS_CMYK : JCS_EXT_RGBX;
  jpeg_start_decompress(&s->cinfo);
  const uint32_t w = s->cinfo.output_width, h = s->cinfo.output_height;
  s->pixels.reset(new (std::nothrow) uint8_t[size_t(w) * h * 4]);
  if (!s->pixels) {
    s->error = "not enough memory for the picture";
    longjmp(s->err.jump, 1);
  }
  if (cmyk) s->row.resize(size_t(w) * 4);
  while (s->cinfo.output_scanline < h) {
    uint8_t* out = s->pixels.get() + size_t(s->cinfo.output_scanline) * w * 4;
    JSAMPROW row = cmyk ? s->row.data() : out;
    jpeg_read_scanlines(&s->cinfo, &row, 1);
    if (cmyk) cmykToRgbx(s->row.data(), out, w, s->cinfo.saw_Adobe_marker);
  }
  // What comes after the picture's last row (often nothing, when the file was cut) doesn't matter.
  jpeg_abort_decompress(&s->cinfo);
  jpeg_destroy_decompress(&s->cinfo);
  if (warning) {
    if (s->err.endedEarly) {
      *warning = "its data ended early; what decoded is used, the rest of the picture is grey";
    } else if (s->err.damaged) {
      *warning = "its data is damaged in places; the picture is used as it decodes";
    }
  }
  orientation = s->orientation;
  return makeImage(std::move(s->pixels), int32_t(w), int32_t(h), PixelFormat::RGBX);
}

// A stdio stream that gives `prefix` first and then the rest of `inner`: the bytes read to tell the
// formats apart go back in front of the stream the decoder reads.
struct Prefixed {
  std::string prefix;
  size_t at = 0;
  FILE* inner;
};
ssize_t readPrefixed(void* cookie, char* buffer, size_t size) {
  auto* p = static_cast<Prefixed*>(cookie);
  if (p->at < p->prefix.size()) {
    const size_t n = std::min(size, p->prefix.size() - p->at);
    std::memcpy(buffer, p->prefix.data() + p->at, n);
    p->at += n;
    return ssize_t(n);
  }
  const size_t n = std::fread(buffer, 1, size, p->inner);
  if (n == 0 && std::ferror(p->inner)) return -1;
  return ssize_t(n);
}

// Rows of the picture as RGB or RGBA bytes, unpremultiplied; alpha only if some pixel isn't opaque.
std::vector<uint8_t> straightPixels(const CGImageRef& image, bool& withAlpha) {
  const PixelView& src = image->pixels();
  const size_t n = size_t(src.width) * size_t(src.height);
  std::vector<raster::RGBA8> px(n);
  for (int32_t y = 0; y < src.height; ++y) raster::loadRow(src.format, src.row(y), src.width, &px[size_t(y) * size_t(src.width)]);
  withAlpha = std::any_of(px.begin(), px.end(), [](const raster::RGBA8& p) { return p.a != 255; });
  const int channels = withAlpha ? 4 : 3;
  std::vector<uint8_t> out(n * size_t(channels));
  for (size_t i = 0; i < n; ++i) {
    raster::RGBA8 p = px[i];
    if (withAlpha && p.a != 0 && p.a != 255) {
      auto un = [&](uint8_t c) { return uint8_t(std::min(255u, (c * 255u + p.a / 2u) / p.a)); };
      p = {un(p.r), un(p.g), un(p.b), p.a};
    }
    uint8_t* q = &out[i * size_t(channels)];
    q[0] = p.r;
    q[1] = p.g;
    q[2] = p.b;
    if (withAlpha) q[3] = p.a;
  }
  return out;
}

struct JpegWrite {
  jpeg_compress_struct cinfo;
  JpegError err;
  unsigned char* buffer = nullptr;
  unsigned long size = 0;
  ~JpegWrite() { std::free(buffer); }
};

bool encodeJpeg(const CGImageRef& image, std::vector<uint8_t>& out, std::string& error, int quality) {
  const PixelView& src = image->pixels();
  // The colour of a pixel with alpha is its colour over black, as the premultiplied bytes are.
  std::vector<uint8_t> rgb(size_t(src.width) * size_t(src.height) * 3);
  std::vector<raster::RGBA8> row(size_t(src.width));
  for (int32_t y = 0; y < src.height; ++y) {
    raster::loadRow(src.format, src.row(y), src.width, row.data());
    for (int32_t x = 0; x < src.width; ++x) {
      uint8_t* q = &rgb[(size_t(y) * size_t(src.width) + size_t(x)) * 3];
      q[0] = row[size_t(x)].r;
      q[1] = row[size_t(x)].g;
      q[2] = row[size_t(x)].b;
    }
  }
  auto s = std::make_unique<JpegWrite>();
  s->cinfo.err = jpeg_std_error(&s->err.mgr);
  s->err.mgr.error_exit = onJpegError;
  if (setjmp(s->err.jump)) {
    jpeg_destroy_compress(&s->cinfo);
    error = std::string("can't write it as JPEG (") + s->err.message + ")";
    return false;
  }
  jpeg_create_compress(&s->cinfo);
  jpeg_mem_dest(&s->cinfo, &s->buffer, &s->size);
  s->cinfo.image_width = JDIMENSION(src.width);
  s->cinfo.image_height = JDIMENSION(src.height);
  s->cinfo.input_components = 3;
  s->cinfo.in_color_space = JCS_RGB;
  jpeg_set_defaults(&s->cinfo);
  jpeg_set_quality(&s->cinfo, quality, TRUE);
  jpeg_start_compress(&s->cinfo, TRUE);
  while (s->cinfo.next_scanline < s->cinfo.image_height) {
    JSAMPROW r = &rgb[size_t(s->cinfo.next_scanline) * size_t(src.width) * 3];
    jpeg_write_scanlines(&s->cinfo, &r, 1);
  }
  jpeg_finish_compress(&s->cinfo);
  jpeg_destroy_compress(&s->cinfo);
  out.assign(s->buffer, s->buffer + s->size);
  return true;
}

bool encodePng(const CGImageRef& image, std::vector<uint8_t>& out, std::string& error) {
  bool withAlpha = false;
  const std::vector<uint8_t> px = straightPixels(image, withAlpha);
  png_image png;
  std::memset(&png, 0, sizeof png);
  png.version = PNG_IMAGE_VERSION;
  png.width = png_uint_32(image->width());
  png.height = png_uint_32(image->height());
  png.format = withAlpha ? PNG_FORMAT_RGBA : PNG_FORMAT_RGB;
  png_alloc_size_t size = 0;
  if (png_image_write_get_memory_size(png, size, 0, px.data(), 0, nullptr)) {
    out.resize(size);
    if (png_image_write_to_memory(&png, out.data(), &size, 0, px.data(), 0, nullptr)) {
      out.resize(size);
      return true;
    }
  }
  error = std::string("can't write it as PNG (") + png.message + ")";
  return false;
}

}  // namespace

UIImage readImage(FILE* stream, std::string& error, std::string* warning, int64_t maxPixels) {
  // The first bytes tell the formats apart; they go back in front of the stream for the decoder.
  char head[8];
  const size_t got = std::fread(head, 1, sizeof head, stream);
  if (got == 0) {
    error = std::ferror(stream) ? "can't read it" : "the file is empty";
    return {};
  }
  const uint8_t* b = reinterpret_cast<const uint8_t*>(head);
  const bool png = got == 8 && std::memcmp(head, "\x89PNG\r\n\x1a\n", 8) == 0;
  const bool jpeg = got >= 3 && b[0] == 0xFF && b[1] == 0xD8 && b[2] == 0xFF;
  if (!png && !jpeg) {
    error = "not a PNG or JPEG picture";
    return {};
  }
  Prefixed prefixed{std::string(head, got), 0, stream};
  const cookie_io_functions_t io{readPrefixed, nullptr, nullptr, nullptr};
  FILE* whole = fopencookie(&prefixed, "rb", io);
  if (!whole) {
    error = std::string("can't read it (") + std::strerror(errno) + ")";
    return {};
  }
  UIImage image;
  if (png) {
    image = UIImage{readPng(whole, error, maxPixels), UIImageOrientationUp};
  } else {
    UIImageOrientation orientation = UIImageOrientationUp;
    CGImageRef pixels = readJpeg(whole, error, warning, orientation, maxPixels);
    if (pixels) image = UIImage{pixels, orientation};
  }
  std::fclose(whole);
  return image;
}

UIImage readImage(const std::string& path, std::string& error, std::string* warning) {
  const std::unique_ptr<InputFile> in = InputFile::open(path, kMaxImageFileBytes, error);
  if (!in) return {};
  std::string warned;
  UIImage image = readImage(in->stream(), error, &warned);
  // A read that failed (the size limit, an I/O error) reaches the decoders as an early end; it is
  // an error, not damage in the picture.
  if (const std::string failure = in->readFailure(); !failure.empty()) {
    error = failure;
    return {};
  }
  if (warning) *warning = warned;
  return image;
}

bool isWritableImagePath(const std::string& path) {
  return isJpegPath(path) || endsWith(lower(path), ".png");
}

bool writeImage(const CGImageRef& image, const std::string& path, std::string& error, int jpegQuality,
                const std::string& xmpPacket) {
  if (!image) {
    error = "there is no picture to write";
    return false;
  }
  if (!isWritableImagePath(path)) {
    error = "unknown picture type: use .png, .jpg or .jpeg";
    return false;
  }
  std::vector<uint8_t> bytes;
  const bool encoded = isJpegPath(path) ? encodeJpeg(image, bytes, error, jpegQuality) : encodePng(image, bytes, error);
  if (!encoded) return false;
  if (!xmpPacket.empty()) {
    std::vector<uint8_t> withXmp;
    if (!look::embedXmp(bytes, xmpPacket, withXmp, error)) return false;
    bytes.swap(withXmp);
  }
  // Written beside the target under a unique name and renamed over it when whole, so that a reader
  // sees the old file or the whole new one.
  if (!writeFileAtomically(path, bytes, error)) {
    error = "can't write it (" + error + ")";
    return false;
  }
  return true;
}

}  // namespace zorvex::native
