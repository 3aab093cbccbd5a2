#pragma once

#include "bench/worker/Picture.h"

#include <string_view>

namespace bench {

/// Resizes once in memory: `who` is "ours" (four channels, into `to`) or "vips" (three channels).
void resizeByOurs(Picture& from, Picture& to);
/// The result's three channels as libvips gives them.
Picture resizeByVips(const Picture& from, int width, int height);
/// Touches the pixels as resizeByVips does, without taking them over.
void runVips(const Picture& from, int width, int height);

struct Errors {
    double inside; // away from the edges by the filter's reach
    double anywhere;
};

/// The largest differences, in steps of 1/255, of a resized picture from one computed in double precision:
/// a separable three-lobed Lanczos filter, whose weights inside the picture add up to one.
Errors resizeErrors(const Picture& from, const Picture& to);

} // namespace bench
