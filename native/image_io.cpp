#include "native/image_io.h"

#include <png.h>
#include <setjmp.h>
#include <jpeglib.h>
#include <libexif/exif-data.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <vector>

#include "core/imaging/blend.h"
#include "core/look/xmp.h"

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

std::string sizeCheck(uint64_t w, uint64_t h) {
  if (w == 0 || h == 0) return "the picture has no pixels";
  if (w > uint64_t(kMaxSide) || h > uint64_t(kMaxSide) || w * h > uint64_t(kMaxPixels))
    return "the picture is too large (" + std::to_string(w) + "x" + std::to_string(h) + "; at most " +
           std::to_string(kMaxPixels / 1'000'000) + " megapixels and " + std::to_string(kMaxSide) + " pixels a side)";
  return {};
}

CGImageRef makeImage(std::shared_ptr<uint8_t[]> pixels, int32_t w, int32_t h, PixelFormat f) {
  const PixelView view{pixels.get(), w, h, ptrdiff_t(w) * 4, f};
  return std::make_shared<const CGImage>(std::shared_ptr<const uint8_t[]>(std::move(pixels)), view);
}

CGImageRef readPng(const std::string& path, std::string& error) {
  png_image image;
  std::memset(&image, 0, sizeof image);
  image.version = PNG_IMAGE_VERSION;
  if (!png_image_begin_read_from_file(&image, path.c_str())) {
    error = std::string("not a readable PNG picture (") + image.message + ")";
    return nullptr;
  }
  if (std::string e = sizeCheck(image.width, image.height); !e.empty()) {
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
};
void onJpegError(j_common_ptr cinfo) {
  auto* err = reinterpret_cast<JpegError*>(cinfo->err);
  (*cinfo->err->format_message)(cinfo, err->message);
  longjmp(err->jump, 1);
}
void quietJpegWarning(j_common_ptr, int) {}

// Everything that changes after setjmp lives behind this pointer, so that a longjmp leaves no local
// in an unknown state.
struct JpegRead {
  jpeg_decompress_struct cinfo;
  JpegError err;
  std::vector<uint8_t> file;
  std::shared_ptr<uint8_t[]> pixels;
  std::string error;
};

CGImageRef readJpeg(const std::vector<uint8_t>& bytes, std::string& error) {
  auto s = std::make_unique<JpegRead>();
  s->file = bytes;
  s->cinfo.err = jpeg_std_error(&s->err.mgr);
  s->err.mgr.error_exit = onJpegError;
  s->err.mgr.emit_message = quietJpegWarning;
  if (setjmp(s->err.jump)) {
    jpeg_destroy_decompress(&s->cinfo);
    error = s->error.empty() ? std::string("the JPEG data is damaged (") + s->err.message + ")" : s->error;
    return nullptr;
  }
  jpeg_create_decompress(&s->cinfo);
  jpeg_mem_src(&s->cinfo, s->file.data(), static_cast<unsigned long>(s->file.size()));
  jpeg_read_header(&s->cinfo, TRUE);
  if (std::string e = sizeCheck(s->cinfo.image_width, s->cinfo.image_height); !e.empty()) {
    jpeg_destroy_decompress(&s->cinfo);
    error = e;
    return nullptr;
  }
  s->cinfo.out_color_space = JCS_EXT_RGBX;
  jpeg_start_decompress(&s->cinfo);
  const uint32_t w = s->cinfo.output_width, h = s->cinfo.output_height;
  s->pixels.reset(new (std::nothrow) uint8_t[size_t(w) * h * 4]);
  if (!s->pixels) {
    s->error = "not enough memory for the picture";
    longjmp(s->err.jump, 1);
  }
  while (s->cinfo.output_scanline < h) {
    JSAMPROW row = s->pixels.get() + size_t(s->cinfo.output_scanline) * w * 4;
    jpeg_read_scanlines(&s->cinfo, &row, 1);
  }
  jpeg_finish_decompress(&s->cinfo);
  jpeg_destroy_decompress(&s->cinfo);
  return makeImage(std::move(s->pixels), int32_t(w), int32_t(h), PixelFormat::RGBX);
}

UIImageOrientation exifOrientation(const std::vector<uint8_t>& bytes) {
  ExifData* data = exif_data_new_from_data(bytes.data(), static_cast<unsigned int>(bytes.size()));
  if (!data) return UIImageOrientationUp;
  UIImageOrientation o = UIImageOrientationUp;
  if (ExifEntry* e = exif_data_get_entry(data, EXIF_TAG_ORIENTATION); e && e->format == EXIF_FORMAT_SHORT) {
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

bool readFile(const std::string& path, std::vector<uint8_t>& out, std::string& error) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    error = std::string("can't open it (") + std::strerror(errno) + ")";
    return false;
  }
  in.seekg(0, std::ios::end);
  const std::streamoff size = in.tellg();
  if (size < 0) {
    error = "can't read it";
    return false;
  }
  in.seekg(0);
  out.resize(size_t(size));
  if (size > 0 && !in.read(reinterpret_cast<char*>(out.data()), size)) {
    error = "can't read it";
    return false;
  }
  return true;
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

bool writeBytes(const std::vector<uint8_t>& bytes, const std::string& path, std::string& error) {
  FILE* file = std::fopen(path.c_str(), "wb");
  if (!file) {
    error = std::string("can't write it (") + std::strerror(errno) + ")";
    return false;
  }
  const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
  const bool closed = std::fclose(file) == 0;
  if (!written || !closed) {
    error = std::string("can't write it (") + std::strerror(errno) + ")";
    return false;
  }
  return true;
}

}  // namespace

UIImage readImage(const std::string& path, std::string& error) {
  std::vector<uint8_t> bytes;
  if (!readFile(path, bytes, error)) return {};
  if (bytes.size() >= 8 && std::memcmp(bytes.data(), "\x89PNG\r\n\x1a\n", 8) == 0) {
    return UIImage{readPng(path, error), UIImageOrientationUp};
  }
  if (bytes.size() >= 3 && bytes[0] == 0xFF && bytes[1] == 0xD8 && bytes[2] == 0xFF) {
    CGImageRef image = readJpeg(bytes, error);
    if (!image) return {};
    return UIImage{image, exifOrientation(bytes)};
  }
  error = bytes.empty() ? "the file is empty" : "not a PNG or JPEG picture";
  return {};
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
  // Written beside the target and renamed over it, so that a failure leaves any old file whole.
  const std::string partial = path + ".partial";
  if (!writeBytes(bytes, partial, error)) {
    std::remove(partial.c_str());
    return false;
  }
  if (std::rename(partial.c_str(), path.c_str()) != 0) {
    error = std::string("can't write it (") + std::strerror(errno) + ")";
    std::remove(partial.c_str());
    return false;
  }
  return true;
}

}  // namespace zorvex::native
