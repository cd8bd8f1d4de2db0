// Contexts, images, layers and the graphics state.
#include <algorithm>
#include <cstring>
#include <limits>
#include <mutex>

#include "core/imaging/raster_internal.h"

namespace zorvex {

namespace {
bool gFastPaths = true;

// Large pixel buffers are recycled. A fresh block of tens of megabytes is a new mapping from the
// system, and a 12-megapixel surface would pay its page faults again on every snapshot; kernels
// take several snapshots each. Buffers of the same size come back in turn.
class BufferPool {
 public:
  static BufferPool& shared() {
    static BufferPool* pool = new BufferPool;  // never destroyed: buffers may outlive static teardown
    return *pool;
  }

  std::shared_ptr<uint8_t[]> acquire(size_t bytes, bool cleared) {
    uint8_t* p = nullptr;
    if (bytes >= kMinPooled) {
      std::lock_guard<std::mutex> lock(mutex_);
      for (size_t i = 0; i < free_.size(); ++i) {
        if (free_[i].second == bytes) {
          p = free_[i].first;
          freeBytes_ -= bytes;
          free_.erase(free_.begin() + ptrdiff_t(i));
          break;
        }
      }
    }
    if (p) {
      if (cleared) std::memset(p, 0, bytes);
    } else {
      p = cleared ? new (std::nothrow) uint8_t[bytes]() : new (std::nothrow) uint8_t[bytes];
      if (!p) return nullptr;
    }
    if (bytes < kMinPooled) return std::shared_ptr<uint8_t[]>(p);
    return std::shared_ptr<uint8_t[]>(p, [bytes](uint8_t* q) { shared().release(q, bytes); });
  }

 private:
  static constexpr size_t kMinPooled = size_t{1} << 20;
  static constexpr size_t kMaxPooledBytes = size_t{160} << 20;

  void release(uint8_t* p, size_t bytes) {
    std::lock_guard<std::mutex> lock(mutex_);
    while (!free_.empty() && freeBytes_ + bytes > kMaxPooledBytes) {  // the oldest go first
      freeBytes_ -= free_.front().second;
      delete[] free_.front().first;
      free_.erase(free_.begin());
    }
    if (bytes > kMaxPooledBytes) {
      delete[] p;
      return;
    }
    free_.emplace_back(p, bytes);
    freeBytes_ += bytes;
  }

  std::mutex mutex_;
  std::vector<std::pair<uint8_t*, size_t>> free_;
  size_t freeBytes_ = 0;
};

template <class F>
void withContext(const CGContextRef& c, F&& f) {
  if (c) f(*c);
}
}  // namespace

void setFastPathsEnabled(bool enabled) { gFastPaths = enabled; }
bool fastPathsEnabled() { return gFastPaths; }

CGColorSpaceRef CGColorSpaceCreateDeviceRGB() {
  static const auto space = std::make_shared<const CGColorSpace>(CGColorSpace{CGColorSpace::Model::RGB});
  return space;
}
CGColorSpaceRef CGColorSpaceCreateDeviceGray() {
  static const auto space = std::make_shared<const CGColorSpace>(CGColorSpace{CGColorSpace::Model::Gray});
  return space;
}

CGColorRef CGColorCreate(const CGColorSpaceRef& space, const CGFloat* components) {
  if (!space || !components) return nullptr;
  if (space->model == CGColorSpace::Model::Gray) {
    return std::make_shared<const CGColor>(CGColor{components[0], components[0], components[0], components[1]});
  }
  return std::make_shared<const CGColor>(CGColor{components[0], components[1], components[2], components[3]});
}

CGContext::CGContext(PixelView pixels, std::shared_ptr<uint8_t[]> owned, const CGAffineTransform& baseCTM)
    : pixels_(pixels), owned_(std::move(owned)) {
  gs_.ctm = baseCTM;
}

CGContextRef CGBitmapContextCreate(void* data, size_t width, size_t height, size_t bitsPerComponent,
                                   size_t bytesPerRow, const CGColorSpaceRef& space, uint32_t bitmapInfo) {
  if (width == 0 || height == 0 || bitsPerComponent != 8 || !space) return nullptr;
  if (width > size_t{std::numeric_limits<int32_t>::max()} || height > size_t{std::numeric_limits<int32_t>::max()})
    return nullptr;
  PixelFormat format;
  if (space->model == CGColorSpace::Model::Gray) {
    if (bitmapInfo != kCGImageAlphaNone) return nullptr;
    format = PixelFormat::Gray;
  } else {
    switch (bitmapInfo) {
      case kCGImageAlphaNoneSkipLast: format = PixelFormat::RGBX; break;
      case kCGImageAlphaPremultipliedLast: format = PixelFormat::RGBA; break;
      case kCGImageAlphaPremultipliedFirst: format = PixelFormat::ARGB; break;
      default: return nullptr;
    }
  }
  const size_t minRow = width * size_t(bytesPerPixel(format));
  if (bytesPerRow == 0) bytesPerRow = minRow;
  if (bytesPerRow < minRow) return nullptr;
  if (bytesPerRow > size_t(kMaxContextBytes) || height > size_t(kMaxContextBytes) / bytesPerRow) return nullptr;
  const size_t bytes = bytesPerRow * height;

  std::shared_ptr<uint8_t[]> owned;
  if (!data) {
    owned = BufferPool::shared().acquire(bytes, true);
    if (!owned) return nullptr;
    data = owned.get();
  }
  const PixelView view{static_cast<uint8_t*>(data), int32_t(width), int32_t(height), ptrdiff_t(bytesPerRow), format};
  return std::make_shared<CGContext>(view, std::move(owned), CGAffineTransformIdentity);
}

size_t CGBitmapContextGetWidth(const CGContextRef& c) { return c ? size_t(c->pixels().width) : 0; }
size_t CGBitmapContextGetHeight(const CGContextRef& c) { return c ? size_t(c->pixels().height) : 0; }
void* CGBitmapContextGetData(const CGContextRef& c) { return c ? c->pixels().data : nullptr; }
size_t CGBitmapContextGetBytesPerRow(const CGContextRef& c) { return c ? size_t(c->pixels().stride) : 0; }

CGImageRef CGBitmapContextCreateImage(const CGContextRef& c) {
  if (!c) return nullptr;
  const PixelView& src = c->pixels();
  const size_t rowBytes = size_t(src.width) * size_t(bytesPerPixel(src.format));
  std::shared_ptr<uint8_t[]> copy = BufferPool::shared().acquire(rowBytes * size_t(src.height), false);
  if (!copy) return nullptr;
  for (int32_t y = 0; y < src.height; ++y) std::memcpy(copy.get() + rowBytes * size_t(y), src.row(y), rowBytes);
  const PixelView view{copy.get(), src.width, src.height, ptrdiff_t(rowBytes), src.format};
  return std::make_shared<const CGImage>(std::shared_ptr<const uint8_t[]>(std::move(copy)), view);
}

size_t CGImageGetWidth(const CGImageRef& image) { return image ? size_t(image->width()) : 0; }
size_t CGImageGetHeight(const CGImageRef& image) { return image ? size_t(image->height()) : 0; }

CGImageRef CGImageCreateWithImageInRect(const CGImageRef& image, CGRect rect) {
  if (!image) return nullptr;
  if (!std::isfinite(rect.origin.x) || !std::isfinite(rect.origin.y) || !std::isfinite(rect.size.width) ||
      !std::isfinite(rect.size.height))
    return nullptr;
  rect = CGRectStandardize(rect);
  // Outward to whole pixels, then cut by the image.
  const double x0 = std::max(std::floor(rect.origin.x), 0.0);
  const double y0 = std::max(std::floor(rect.origin.y), 0.0);
  const double x1 = std::min(std::ceil(rect.origin.x + rect.size.width), double(image->width()));
  const double y1 = std::min(std::ceil(rect.origin.y + rect.size.height), double(image->height()));
  if (!(x0 < x1) || !(y0 < y1)) return nullptr;
  const PixelView& src = image->pixels();
  PixelView view = src;
  view.data = src.at(int32_t(x0), int32_t(y0));
  view.width = int32_t(x1 - x0);
  view.height = int32_t(y1 - y0);
  return std::make_shared<const CGImage>(image->owner(), view);
}

CGLayerRef CGLayerCreateWithContext(const CGContextRef& c, CGSize size, const void*) {
  if (!c || !(size.width >= 1) || !(size.height >= 1) || !std::isfinite(size.width) || !std::isfinite(size.height))
    return nullptr;
  auto ctx = CGBitmapContextCreate(nullptr, size_t(size.width), size_t(size.height), 8, 0,
                                   CGColorSpaceCreateDeviceRGB(), kCGImageAlphaPremultipliedLast);
  if (!ctx) return nullptr;
  return std::make_shared<CGLayer>(std::move(ctx), size);
}
CGContextRef CGLayerGetContext(const CGLayerRef& layer) { return layer ? layer->context() : nullptr; }
CGSize CGLayerGetSize(const CGLayerRef& layer) { return layer ? layer->size() : CGSize{}; }

// ----- Graphics state -----

void CGContextSaveGState(const CGContextRef& c) {
  withContext(c, [](CGContext& x) { x.savedStates().push_back(x.state()); });
}
void CGContextRestoreGState(const CGContextRef& c) {
  withContext(c, [](CGContext& x) {
    if (x.savedStates().empty()) return;
    x.state() = std::move(x.savedStates().back());
    x.savedStates().pop_back();
  });
}
void CGContextSetBlendMode(const CGContextRef& c, CGBlendMode mode) {
  withContext(c, [&](CGContext& x) {
    if (mode >= 0 && mode < kCGBlendModeCount) x.state().blendMode = mode;
  });
}
void CGContextSetInterpolationQuality(const CGContextRef& c, CGInterpolationQuality q) {
  withContext(c, [&](CGContext& x) { x.state().interpolation = q; });
}
CGInterpolationQuality CGContextGetInterpolationQuality(const CGContextRef& c) {
  return c ? c->state().interpolation : kCGInterpolationDefault;
}
void CGContextSetAlpha(const CGContextRef& c, CGFloat alpha) {
  withContext(c, [&](CGContext& x) { x.state().alpha = std::isnan(alpha) ? 0.0 : std::clamp(alpha, 0.0, 1.0); });
}
void CGContextTranslateCTM(const CGContextRef& c, CGFloat tx, CGFloat ty) {
  withContext(c, [&](CGContext& x) { x.state().ctm = CGAffineTransformTranslate(x.state().ctm, tx, ty); });
}
void CGContextScaleCTM(const CGContextRef& c, CGFloat sx, CGFloat sy) {
  withContext(c, [&](CGContext& x) { x.state().ctm = CGAffineTransformScale(x.state().ctm, sx, sy); });
}
void CGContextRotateCTM(const CGContextRef& c, CGFloat angle) {
  withContext(c, [&](CGContext& x) { x.state().ctm = CGAffineTransformRotate(x.state().ctm, angle); });
}
void CGContextConcatCTM(const CGContextRef& c, const CGAffineTransform& t) {
  withContext(c, [&](CGContext& x) { x.state().ctm = CGAffineTransformConcat(t, x.state().ctm); });
}
CGAffineTransform CGContextGetCTM(const CGContextRef& c) { return c ? c->state().ctm : CGAffineTransformIdentity; }

void CGContextSetRGBFillColor(const CGContextRef& c, CGFloat r, CGFloat g, CGFloat b, CGFloat a) {
  withContext(c, [&](CGContext& x) { x.state().fill = {r, g, b, a}; });
}
void CGContextSetRGBStrokeColor(const CGContextRef& c, CGFloat r, CGFloat g, CGFloat b, CGFloat a) {
  withContext(c, [&](CGContext& x) { x.state().stroke = {r, g, b, a}; });
}
void CGContextSetFillColorWithColor(const CGContextRef& c, const CGColorRef& color) {
  if (color) withContext(c, [&](CGContext& x) { x.state().fill = *color; });
}
void CGContextSetStrokeColorWithColor(const CGContextRef& c, const CGColorRef& color) {
  if (color) withContext(c, [&](CGContext& x) { x.state().stroke = *color; });
}
void CGContextSetLineWidth(const CGContextRef& c, CGFloat width) {
  withContext(c, [&](CGContext& x) {
    if (width >= 0 && std::isfinite(width)) x.state().lineWidth = width;
  });
}

namespace raster {

PixelBox drawableBox(const CGContext& c, double minX, double minY, double maxX, double maxY) {
  PixelBox box{0, 0, c.pixels().width, c.pixels().height};
  if (!(minX <= maxX) || !(minY <= maxY)) return {};
  box.x0 = int32_t(std::clamp(std::floor(minX), 0.0, double(box.x1)));
  box.y0 = int32_t(std::clamp(std::floor(minY), 0.0, double(box.y1)));
  box.x1 = int32_t(std::clamp(std::ceil(maxX), 0.0, double(box.x1)));
  box.y1 = int32_t(std::clamp(std::ceil(maxY), 0.0, double(box.y1)));
  if (const auto& clip = c.state().clip) {
    box.x0 = std::max(box.x0, clip->x0);
    box.y0 = std::max(box.y0, clip->y0);
    box.x1 = std::min(box.x1, clip->x1);
    box.y1 = std::min(box.y1, clip->y1);
  }
  return box;
}

RGBA8 premultipliedColor(const CGColor& col) {
  auto unit = [](CGFloat v) { return std::isnan(v) ? 0.0 : std::clamp(v, 0.0, 1.0); };
  const double a = unit(col.a);
  auto byte = [](double v) { return uint8_t(v * 255.0 + 0.5); };
  return {byte(unit(col.r) * a), byte(unit(col.g) * a), byte(unit(col.b) * a), byte(a)};
}

}  // namespace raster
}  // namespace zorvex
