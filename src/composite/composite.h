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

// Render mode 4, maximum intensity projection: each pixel shows the sample of its ray that the
// transfer function makes most opaque (the nearest of equal ones), in that sample's colour,
// unlit; a ray ends at an opacity of 0.975. Render mode 6, average value projection: each
// pixel shows the mean of the samples that the transfer function does not hide, taken over
// one more than their number; no early end. With faint_whisps the colour is scaled by the
// opacity found (mip) or by the mean opacity (avg).
//
// The previews cast the lattice (first step projection_lattice, refinement down to
// preview_limit_simple) and leave color, depth, mask and lattice_step. The finals (interp_mode
// 0 and 1) cast only the pixels the preview did not, and column 0, polling on odd lines; they
// close with smooth_image. The trilinear finals cast every pixel and poll at every line and
// before every pixel whose x is a multiple of 8; a change clears the image and draws the
// preview in its place.
constexpr int projection_lattice = 16;  // the first lattice of both previews
void render_mip_preview(RenderTarget* target, uint32_t* voxels, float* ipos, float* ifor, float* iup,
                        float* istr);
void render_mip_final(RenderTarget* target, uint32_t* voxels, float* ipos, float* ifor, float* iup,
                      float* istr);
void render_mip_final_trilinear(RenderTarget* target, uint32_t* voxels, float* ipos, float* ifor,
                                float* iup, float* istr);
void render_avg_preview(RenderTarget* target, uint32_t* voxels, float* ipos, float* ifor, float* iup,
                        float* istr);
void render_avg_final(RenderTarget* target, uint32_t* voxels, float* ipos, float* ifor, float* iup,
                      float* istr);
void render_avg_final_trilinear(RenderTarget* target, uint32_t* voxels, float* ipos, float* ifor,
                                float* iup, float* istr);
