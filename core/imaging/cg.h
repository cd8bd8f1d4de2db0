// Our raster engine, under the names of the platform operations that the kernels are written against.
//
// A context owns (or wraps) its pixels, row-major with the top row first in memory, in the layout its
// bitmap info names, and keeps a graphics-state stack. Drawing coordinates have their origin at the
// bottom-left corner with y up, until the transform is changed. An image is immutable and shares its
// pixels; a crop is a view of them. A layer is a transparent premultiplied RGBA context of a given size.
//
// Handles are reference counted: a null handle is nil, and every operation accepts nil and does
// nothing with it, as the platform does. Dropping the last handle releases the object.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "core/imaging/geometry.h"

namespace zorvex {

// ----- Constants -----

enum CGBlendMode : int32_t {
  kCGBlendModeNormal = 0,
  kCGBlendModeMultiply = 1,
  kCGBlendModeScreen = 2,
  kCGBlendModeOverlay = 3,
  kCGBlendModeDarken = 4,
  kCGBlendModeLighten = 5,
  kCGBlendModeColorDodge = 6,
  kCGBlendModeColorBurn = 7,
  kCGBlendModeSoftLight = 8,
  kCGBlendModeHardLight = 9,
  kCGBlendModeDifference = 10,
  kCGBlendModeExclusion = 11,
  kCGBlendModeHue = 12,
  kCGBlendModeSaturation = 13,
  kCGBlendModeColor = 14,
  kCGBlendModeLuminosity = 15,
  kCGBlendModeClear = 16,
  kCGBlendModeCopy = 17,
  kCGBlendModeSourceIn = 18,
  kCGBlendModeSourceOut = 19,
  kCGBlendModeSourceAtop = 20,
  kCGBlendModeDestinationOver = 21,
  kCGBlendModeDestinationIn = 22,
  kCGBlendModeDestinationOut = 23,
  kCGBlendModeDestinationAtop = 24,
  kCGBlendModeXOR = 25,
  kCGBlendModePlusDarker = 26,
  kCGBlendModePlusLighter = 27,
};
inline constexpr int kCGBlendModeCount = 28;

enum CGInterpolationQuality : int32_t {
  kCGInterpolationDefault = 0,
  kCGInterpolationNone = 1,
  kCGInterpolationLow = 2,
  kCGInterpolationMedium = 4,
  kCGInterpolationHigh = 3,
};

// The alpha part of the bitmap info.
enum CGImageAlphaInfo : uint32_t {
  kCGImageAlphaNone = 0,
  kCGImageAlphaPremultipliedLast = 1,
  kCGImageAlphaPremultipliedFirst = 2,
  kCGImageAlphaNoneSkipLast = 5,
};

enum CGPathDrawingMode : int32_t {
  kCGPathFill = 0,
  kCGPathEOFill = 1,
  kCGPathStroke = 2,
  kCGPathFillStroke = 3,
  kCGPathEOFillStroke = 4,
};

// ----- Pixel layouts -----

// How the bytes of a pixel are laid out.
enum class PixelFormat : uint8_t {
  RGBX,  // bitmap info 5: R, G, B, skipped byte; no alpha
  RGBA,  // bitmap info 1: R, G, B, A, premultiplied
  ARGB,  // bitmap info 2: A, R, G, B, premultiplied
  Gray,  // grey colour space, alpha info 0: one byte
};
inline constexpr int bytesPerPixel(PixelFormat f) { return f == PixelFormat::Gray ? 1 : 4; }
inline constexpr bool hasAlpha(PixelFormat f) { return f == PixelFormat::RGBA || f == PixelFormat::ARGB; }

// A window onto pixel memory.
struct PixelView {
  uint8_t* data = nullptr;
  int32_t width = 0;
  int32_t height = 0;
  ptrdiff_t stride = 0;  // bytes from one row to the next
  PixelFormat format = PixelFormat::RGBX;

  uint8_t* row(int32_t y) const { return data + y * stride; }
  uint8_t* at(int32_t x, int32_t y) const { return row(y) + x * bytesPerPixel(format); }
};

// ----- Objects -----

struct CGColorSpace {
  enum class Model { RGB, Gray } model;
};
using CGColorSpaceRef = std::shared_ptr<const CGColorSpace>;
CGColorSpaceRef CGColorSpaceCreateDeviceRGB();
CGColorSpaceRef CGColorSpaceCreateDeviceGray();

// Components as given, not premultiplied: red, green, blue, alpha, each 0 to 1.
struct CGColor {
  CGFloat r = 0, g = 0, b = 0, a = 1;
};
using CGColorRef = std::shared_ptr<const CGColor>;
// `components` holds 4 values for an RGB space and 2 (grey, alpha) for a grey one.
CGColorRef CGColorCreate(const CGColorSpaceRef& space, const CGFloat* components);

// An immutable picture. Its pixels are shared with every crop of it.
class CGImage {
 public:
  CGImage(std::shared_ptr<const uint8_t[]> owner, PixelView view) : owner_(std::move(owner)), view_(view) {}
  int32_t width() const { return view_.width; }
  int32_t height() const { return view_.height; }
  PixelFormat format() const { return view_.format; }
  // Read-only pixels; `data` must not be written through.
  const PixelView& pixels() const { return view_; }
  const std::shared_ptr<const uint8_t[]>& owner() const { return owner_; }

 private:
  std::shared_ptr<const uint8_t[]> owner_;
  PixelView view_;
};
using CGImageRef = std::shared_ptr<const CGImage>;

class ClipMask;
struct GraphicsState {
  CGAffineTransform ctm;
  CGBlendMode blendMode = kCGBlendModeNormal;
  CGInterpolationQuality interpolation = kCGInterpolationDefault;
  CGFloat alpha = 1.0;
  CGColor fill{0, 0, 0, 1};
  CGColor stroke{0, 0, 0, 1};
  CGFloat lineWidth = 1.0;
  std::shared_ptr<const ClipMask> clip;  // nil: nothing clipped
};

// The path under construction, in device coordinates (points are transformed when added).
struct PathData {
  std::vector<std::vector<CGPoint>> subpaths;
  std::vector<bool> closed;
  bool hasCurrentPoint = false;
};

class CGContext {
 public:
  // Wraps `pixels`; `owned` keeps them alive when the context made them itself.
  CGContext(PixelView pixels, std::shared_ptr<uint8_t[]> owned, const CGAffineTransform& baseCTM);
  const PixelView& pixels() const { return pixels_; }
  GraphicsState& state() { return gs_; }
  const GraphicsState& state() const { return gs_; }
  std::vector<GraphicsState>& savedStates() { return saved_; }
  PathData& path() { return path_; }

 private:
  PixelView pixels_;
  std::shared_ptr<uint8_t[]> owned_;
  GraphicsState gs_;
  std::vector<GraphicsState> saved_;
  PathData path_;
};
using CGContextRef = std::shared_ptr<CGContext>;

class CGLayer {
 public:
  CGLayer(CGContextRef context, CGSize size) : context_(std::move(context)), size_(size) {}
  const CGContextRef& context() const { return context_; }
  CGSize size() const { return size_; }

 private:
  CGContextRef context_;
  CGSize size_;
};
using CGLayerRef = std::shared_ptr<CGLayer>;

// ----- Contexts and images -----

// nil for a size it can't serve: a width or height of 0, fewer than 8 bits a component, rows too short
// for the width, an unsupported layout, or more memory than a context may have. Without `data` the
// pixels are allocated and cleared; with it they are those bytes, which must outlive the context.
CGContextRef CGBitmapContextCreate(void* data, size_t width, size_t height, size_t bitsPerComponent,
                                   size_t bytesPerRow, const CGColorSpaceRef& space, uint32_t bitmapInfo);
size_t CGBitmapContextGetWidth(const CGContextRef& c);
size_t CGBitmapContextGetHeight(const CGContextRef& c);
void* CGBitmapContextGetData(const CGContextRef& c);
size_t CGBitmapContextGetBytesPerRow(const CGContextRef& c);
// A snapshot of the context's pixels, unaffected by later drawing; nil for a nil context.
CGImageRef CGBitmapContextCreateImage(const CGContextRef& c);

size_t CGImageGetWidth(const CGImageRef& image);
size_t CGImageGetHeight(const CGImageRef& image);
// A crop, with y going down from the top row. The rectangle is expanded outward to whole pixels and
// intersected with the image; empty results and non-finite rectangles give nil.
CGImageRef CGImageCreateWithImageInRect(const CGImageRef& image, CGRect rect);

CGLayerRef CGLayerCreateWithContext(const CGContextRef& c, CGSize size, const void* auxiliaryInfo);
CGContextRef CGLayerGetContext(const CGLayerRef& layer);
CGSize CGLayerGetSize(const CGLayerRef& layer);

// ----- Graphics state -----

void CGContextSaveGState(const CGContextRef& c);
void CGContextRestoreGState(const CGContextRef& c);
void CGContextSetBlendMode(const CGContextRef& c, CGBlendMode mode);
void CGContextSetInterpolationQuality(const CGContextRef& c, CGInterpolationQuality q);
CGInterpolationQuality CGContextGetInterpolationQuality(const CGContextRef& c);
void CGContextSetAlpha(const CGContextRef& c, CGFloat alpha);
void CGContextTranslateCTM(const CGContextRef& c, CGFloat tx, CGFloat ty);
void CGContextScaleCTM(const CGContextRef& c, CGFloat sx, CGFloat sy);
void CGContextRotateCTM(const CGContextRef& c, CGFloat angle);
void CGContextConcatCTM(const CGContextRef& c, const CGAffineTransform& t);
CGAffineTransform CGContextGetCTM(const CGContextRef& c);
void CGContextSetRGBFillColor(const CGContextRef& c, CGFloat r, CGFloat g, CGFloat b, CGFloat a);
void CGContextSetRGBStrokeColor(const CGContextRef& c, CGFloat r, CGFloat g, CGFloat b, CGFloat a);
void CGContextSetFillColorWithColor(const CGContextRef& c, const CGColorRef& color);
void CGContextSetStrokeColorWithColor(const CGContextRef& c, const CGColorRef& color);
void CGContextSetLineWidth(const CGContextRef& c, CGFloat width);
// Intersects the clip with the mask's grey level, the mask being laid into `rect` as an image would be
// drawn there. Outside `rect` nothing passes.
void CGContextClipToMask(const CGContextRef& c, CGRect rect, const CGImageRef& mask);

// ----- Drawing -----

// The whole image scaled into `rect` (its top row at the top of `rect`), under the current transform,
// blend mode, alpha, interpolation quality and clip. A negative width or height mirrors the picture.
void CGContextDrawImage(const CGContextRef& c, CGRect rect, const CGImageRef& image);
void CGContextDrawLayerAtPoint(const CGContextRef& c, CGPoint point, const CGLayerRef& layer);
void CGContextDrawLayerInRect(const CGContextRef& c, CGRect rect, const CGLayerRef& layer);
// Sets the pixels of `rect` (under the transform and clip) to transparent black, whatever the blend
// mode and alpha.
void CGContextClearRect(const CGContextRef& c, CGRect rect);
void CGContextFillRect(const CGContextRef& c, CGRect rect);
void CGContextStrokeRect(const CGContextRef& c, CGRect rect);
void CGContextFillEllipseInRect(const CGContextRef& c, CGRect rect);

void CGContextBeginPath(const CGContextRef& c);
void CGContextMoveToPoint(const CGContextRef& c, CGFloat x, CGFloat y);
void CGContextAddLineToPoint(const CGContextRef& c, CGFloat x, CGFloat y);
void CGContextClosePath(const CGContextRef& c);
void CGContextAddRect(const CGContextRef& c, CGRect rect);
void CGContextAddEllipseInRect(const CGContextRef& c, CGRect rect);
// Fill (non-zero or even-odd) and/or stroke the current path, then clear it.
void CGContextDrawPath(const CGContextRef& c, CGPathDrawingMode mode);
void CGContextFillPath(const CGContextRef& c);
void CGContextEOFillPath(const CGContextRef& c);
void CGContextStrokePath(const CGContextRef& c);

// ----- Engine switches -----

// With fast paths off every draw takes the general path; tests compare the two.
void setFastPathsEnabled(bool enabled);
bool fastPathsEnabled();

// The largest context the engine makes, in bytes of pixels.
inline constexpr int64_t kMaxContextBytes = int64_t{1} << 30;

}  // namespace zorvex
