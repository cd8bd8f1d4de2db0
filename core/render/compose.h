// The pieces of rendering that the picture view, the command line and the web engine share: the
// preview size rule, one run of the stack on its own surface, and the two compositions of the
// effected picture over the base.
#pragma once

#include <span>

#include "core/imaging/blend_modes.h"
#include "core/imaging/cg.h"
#include "core/stack/effects_data.h"

namespace zorvex {

// A preview of a W x H picture for a view F pixels wide: W x H when F >= W (never scaled up), else F
// wide and truncate(F / (W / H)) high.
CGSize previewSize(int64_t W, int64_t H, int64_t F);

// The largest rectangle of the aspect of `aspect` in `bounds`, centred.
CGRect AVMakeRectWithAspectRatioInsideRect(CGSize aspect, CGRect bounds);

// A surface (bitmap info 5) and its layer of w x h pixels, or nil ones.
struct Surface {
  CGContextRef context;
  CGLayerRef layer;
};
Surface makeSurface(int64_t w, int64_t h);

// The final composition: in a w x h surface with alpha, the base in (0, 0, w, h), then the effected
// picture over it under the blend mode and at the alpha.
CGImageRef composeFinal(const CGImageRef& base, const CGImageRef& effected, int64_t w, int64_t h, BlendMode mode,
                        double alpha);

// What the picture view shows in a tw x th target: the base aspect-fitted and centred, then, unless
// effects are hidden, the effected picture over it in the same rectangle under the mode and alpha.
CGImageRef composeForDisplay(const CGImageRef& base, const CGImageRef& effected, int64_t tw, int64_t th,
                             BlendMode mode, double alpha, bool hideEffects);

}  // namespace zorvex
