#pragma once

#include "scene/Color.h"

namespace scene {

/// A made-up valley: a meadow that falls to a lake, woods behind it and a snowy range at the end. Lengths in
/// metres, x to the right, y up from the water, z away from the one who looks.
struct Ground {
    double height = 0;    ///< of the surface, tree tops included; below 0 is the bed of the lake
    double treeShare = 0; ///< 0 bare … 1 the top of a tree
};

Ground groundAt(double x, double z);

/// How the surface lies: the share of sunlight that falls on it (0 in its own shade, 1 square to the sun,
/// less below a cloud) and its rise per metre.
struct Slope {
    double light = 0;
    double steepness = 0;
};

Slope slopeAt(double x, double z, const Ground& ground);

/// The light that the surface sends to the camera from a point at (x, y, z); y matters on steep faces, where
/// one step of the camera spans several of them.
Color surfaceColor(double x, double y, double z, const Ground& ground, const Slope& slope);

/// What distance does to a colour.
Color throughHaze(Color color, double z);

/// The sky by the direction looked in: x and y on a plane one unit away.
Color skyColor(double x, double y);

} // namespace scene
