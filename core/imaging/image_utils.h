// Routines that redraw pictures. Each makes a context, draws, takes the picture and lets go of what it
// made.
#pragma once

#include "core/imaging/cg.h"
#include "core/imaging/pixels.h"
#include "core/imaging/uikit.h"

namespace zorvex {

namespace ImageUtils {

// 8 bits, 4 * width bytes a row, device RGB; bitmap info 1 with alpha and 5 without.
CGContextRef makeContext(int64_t width, int64_t height, bool hasAlpha = false);
// A new context of `size` (bitmap info 2) holding the context's picture, drawn at high quality. On
// failure prints "Cant! " and the size, and gives nil.
CGContextRef resizeContextTo(const CGContextRef& context, CGSize size);
// The context's picture redrawn at `size` (bitmap info 2, default interpolation), as an image. A size
// or context that can't be had is fatal.
CGImageRef resizeContextToNewCGImage(const CGContextRef& context, CGSize size);
inline CGImageRef resizeContextToNewCGImage(const CGContextRef& context, double width, double height) {
  return resizeContextToNewCGImage(context, CGSize{width, height});
}
// The image redrawn at `size`, the same way.
CGImageRef getResizedCGImageFromImage(const CGImageRef& image, CGSize size);
inline CGImageRef getResizedCGImageFromImage(const CGImageRef& image, double width, double height) {
  return getResizedCGImageFromImage(image, CGSize{width, height});
}
// Mirrored top to bottom, and left to right.
CGImageRef flipImageVert(const CGImageRef& image);
CGImageRef flipImageHoriz(const CGImageRef& image);
// Quarter turns in a temporary image context, about the centre of the old size; the y-down canvas
// also mirrors the picture top to bottom, for every number of turns.
CGImageRef rotateCGImage(const CGImageRef& image, int64_t steps);
// The picture under a colour in the Color blend mode (bitmap info 5).
CGImageRef tintImage(const CGImageRef& image, KColor color);
// The picture at an opacity (bitmap info 1).
CGImageRef fadeImage(const CGImageRef& image, double alpha);
// Turned by `degrees` on the bounding box of the turned size, mirrored left to right when `mirror`.
UIImage rotatedImage(const UIImage& image, double degrees, bool mirror);

}  // namespace ImageUtils

namespace KCGContextProcessing {
// A context of the truncated size (bitmap info 2) holding the context's picture at default quality,
// or nil when that size can't be made. The caller owns it.
CGContextRef resizeContext(const CGContextRef& context, CGSize size);
}  // namespace KCGContextProcessing

namespace KImageProcessing {
// The picture upright in an opaque context of its shown size, for the four unmirrored orientations.
UIImage rotate(const UIImage& image, UIImageOrientation orientation);
// rotate with the image's own orientation; a mirrored orientation counts as up.
UIImage correctForCameraOrientation(const UIImage& image);
}  // namespace KImageProcessing

}  // namespace zorvex
