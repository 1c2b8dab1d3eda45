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

// ---------------------------------------------------------------------------------------------
// Region boundary surfaces (mode 8) and isovalue contour surfaces (mode 10), surfaces.cpp.
// Front-to-back compositing of lit samples: rbs takes a sample's opacity from the transfer
// function times its gradient magnitude, ics from a tent around the isovalue whose width
// follows the gradient. The previews (lattice 32, closed by smooth_image) leave color, depth,
// mask and lattice_step; the finals poll every line and stop on refresh or the colour dialog.
constexpr int surface_lattice = 32;  // the previews' first lattice
void render_rbs_preview(RenderTarget* target, uint32_t* voxels, float* ipos, float* ifor, float* iup,
                        float* istr);
void render_rbs_final(RenderTarget* target, uint32_t* voxels, float* ipos, float* ifor, float* iup,
                      float* istr);
void render_rbs_final_trilinear(RenderTarget* target, uint32_t* voxels, float* ipos, float* ifor,
                                float* iup, float* istr);
void render_ics_preview(RenderTarget* target, uint32_t* voxels, float* ipos, float* ifor, float* iup,
                        float* istr);
void render_ics_final(RenderTarget* target, uint32_t* voxels, float* ipos, float* ifor, float* iup,
                      float* istr);
void render_ics_final_trilinear(RenderTarget* target, uint32_t* voxels, float* ipos, float* ifor,
                                float* iup, float* istr);
// The t of the crossing before the last one of render_rbs_final's walk, carried from ray to ray
// and from pass to pass (0 at the start of the run): the first visit of a ray measures its
// sample distance from what the ray before left here.
extern int32_t prev_cross_t;
