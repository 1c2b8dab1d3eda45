// composite.h — the compositing modes: maximum intensity and average projections, region
// boundary surfaces and isovalue contour surfaces, and what they share.
//
// Every pass reads voxels, gradients, block_map, the lookup tables and the settings, writes
// only the RenderTarget it is given (and edge_scratch, through smooth_image), and ends by
// showing the image.
#pragma once
#include <cstdint>

#include "core/core.h"

// The 5-point filter that closes some passes: color is copied whole to edge_scratch, then
// every pixel with 1 <= x < width - 1 and 1 <= y < height - 1 becomes, channel by channel in
// integers, (((up + down + left + right) >> 2) + centre) >> 1, reading only the copy; byte 3
// becomes 0. The border stays as it was; an image of width or height 2 or less is unchanged.
void smooth_image(RenderTarget* target);
