// "2600++" and "SIGSTOP" damage the picture the way a damaged file does: they encode it as a JPEG
// stream in memory, overwrite bytes of the stream with 7s at random places behind its first 600
// bytes (so the headers stay legible), decode what is left and draw that back. The places come from
// the unrepeatable source, so these effects flicker from frame to frame.
#include <algorithm>

#include "core/imaging/fatal.h"
#include "core/imaging/image_utils.h"
#include "core/imaging/jpeg.h"
#include "core/imaging/mutable_data.h"
#include "core/imaging/platform.h"
#include "core/kernels/kernels.h"

namespace zorvex::KCGContextProcessing {
namespace {

// lo + (hi - lo) * (arc4random() * 2^-32), in single precision. Below `lo` when hi < lo.
float randomInRange(float lo, float hi) { return lo + (hi - lo) * (float(arc4random()) * 0x1p-32f); }

}  // namespace

void JPEGCompressAndGlitchContext(const CGContextRef& context, const CGLayerRef& layer, int32_t glitchCount,
                                  int32_t glitchSize, float compression) {
  // The stream, the patch and the pictures die at the end of this scope.
  const size_t width = CGBitmapContextGetWidth(context);
  const size_t height = CGBitmapContextGetHeight(context);
  UIImage picture{CGBitmapContextCreateImage(context)};
  NSMutableData stream(UIImageJPEGRepresentation(picture, double(compression)));
  picture = {};
  const uint64_t length = stream.length();

  const std::vector<uint8_t> patch(size_t(std::max(glitchSize, 0)), 7);
  for (int32_t i = 0; i < glitchCount; ++i) {
    const int64_t position = truncInt(randomInRange(600.0f, float(length)));
    // A negative size becomes an enormous unsigned length, which the replacement refuses.
    const NSRange range = NSMakeRange(uint64_t(position), uint64_t(int64_t(glitchSize)));
    if (!stream.replaceBytesInRange(range, patch.data())) {
      consoleLine("ERROR!)");
      consoleLine("There was an error corrupting data");
    }
  }

  // A stream that no longer decodes gives no picture: nothing is drawn into the layer.
  const UIImage damaged = UIImageWithData(stream.bytes());
  CGContextDrawImage(CGLayerGetContext(layer),
                     CGRectMake(0.0, 0.0, double(float(width)), double(float(height))), damaged.CGImage);
  CGContextSetBlendMode(context, kCGBlendModeNormal);
  CGContextDrawLayerAtPoint(context, CGPointZero, layer);
}

void _2600(const CGContextRef& context, const CGLayerRef& layer, ControlFloats controls) {
  const float w = float(CGBitmapContextGetWidth(context));
  const float h = float(CGBitmapContextGetHeight(context));
  // The reduced picture is about controls[0] * 240 pixels wide, the aspect ratio kept.
  const float scale = float(double(controls[0]) * 240.0 / double(w));
  const CGContextRef layerContext = CGLayerGetContext(layer);

  CGContextSetInterpolationQuality(context, kCGInterpolationNone);
  // Drawn at the new context's default quality; nil when a side truncates to 0.
  CGContextRef small = resizeContext(context, CGSize{double(w * scale), double(h * scale)});
  CGContextSetInterpolationQuality(small, kCGInterpolationNone);
  CGContextSetInterpolationQuality(layerContext, kCGInterpolationNone);
  // Always the worst quality and five single-byte hits; the damaged picture ends up in `small`.
  JPEGCompressAndGlitchContext(small, layer, 5, 1, 0.0f);

  CGContextSetInterpolationQuality(context, kCGInterpolationNone);
  CGImageRef image = CGBitmapContextCreateImage(small);
  small = nullptr;
  // Enlarged to full size without interpolation: hard square pixels.
  CGContextSetInterpolationQuality(layerContext, kCGInterpolationNone);
  CGContextDrawImage(layerContext, CGRectMake(0.0, 0.0, double(w), double(h)), image);
  image = nullptr;

  CGContextSetBlendMode(context, kCGBlendModeNormal);
  CGContextSetInterpolationQuality(layerContext, kCGInterpolationNone);
  CGContextSetInterpolationQuality(context, kCGInterpolationNone);
  CGContextDrawLayerAtPoint(context, CGPointZero, layer);
}

void sigStop(const CGContextRef& context, const CGLayerRef& layer, ControlFloats controls) {
  const int32_t glitchSize = truncInt32(double(controls[0]) * 20.0);   // bytes in each glitch, 0 to 20
  const int32_t glitchCount = truncInt32(double(controls[1]) * 10.0);  // number of glitches, 0 to 10
  const float compression = controls[2];                                // JPEG quality, as it is
  JPEGCompressAndGlitchContext(context, layer, glitchCount, glitchSize, compression);
}

}  // namespace zorvex::KCGContextProcessing
