// The few picture types of the phone's interface toolkit that the imaging routines use: an image with
// an orientation tag, and temporary image contexts whose drawing space has its origin at the top left.
#pragma once

#include "core/imaging/cg.h"

namespace zorvex {

enum UIImageOrientation : int32_t {
  UIImageOrientationUp = 0,
  UIImageOrientationDown = 1,
  UIImageOrientationLeft = 2,
  UIImageOrientationRight = 3,
  UIImageOrientationUpMirrored = 4,
  UIImageOrientationDownMirrored = 5,
  UIImageOrientationLeftMirrored = 6,
  UIImageOrientationRightMirrored = 7,
};

// A picture with the orientation it is to be shown in; nil when it has no CGImage.
struct UIImage {
  CGImageRef CGImage;
  UIImageOrientation imageOrientation = UIImageOrientationUp;

  explicit operator bool() const { return CGImage != nullptr; }
  // The size as shown: the stored size, swapped for the four orientations that turn by a quarter.
  CGSize size() const;
};

// A temporary bitmap context on a per-thread stack, `size` points at `scale` pixels a point (0: 1.0),
// opaque or with alpha, drawing space with y down from the top left.
void UIGraphicsBeginImageContextWithOptions(CGSize size, bool opaque, CGFloat scale);
void UIGraphicsBeginImageContext(CGSize size);
CGContextRef UIGraphicsGetCurrentContext();
UIImage UIGraphicsGetImageFromCurrentImageContext();
void UIGraphicsEndImageContext();

}  // namespace zorvex
