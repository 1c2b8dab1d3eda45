// raycast.h — the first-hit ray casters and the skeleton all ray casters share: frame set-up,
// ray-box entry, the integer walk with brick skipping, and the adaptive preview lattice. The
// skeleton itself is in walk.h, which passes include; this header is what the rest of the
// program calls.
//
// Every pass reads voxels, gradients, block_map, the lookup tables and the settings, writes
// only the RenderTarget, and ends by showing the image (show_image).
#pragma once
#include <cstdint>

#include "core/core.h"

// Pixel distance of the first preview lattice, set by each preview and read by the finals.
extern int lattice_step;
// Rays the last preview cast on its lattice and in its refinement (run_preview_lattice counts
// each cast step it calls), for tavok-render's figures.
extern uint32_t lattice_rays;

// Render mode 0, cuberille first hit. The preview leaves color, depth, mask and lattice_step
// for the final; the final recomputes every pixel and gives up on a change (odd lines).
constexpr int cuberille_lattice = 8;  // the preview's first lattice
void render_cuberille_preview(RenderTarget* target, uint32_t* voxels, float* ipos, float* ifor,
                              float* iup, float* istr);
void render_cuberille_final(RenderTarget* target, uint32_t* voxels, float* ipos, float* ifor,
                            float* iup, float* istr);

// Render mode 2, interpolated first hit: a ray stops where the density (interpolated on the
// crossed grid plane, or at the voxel without interpolation) first reaches isovalue, and the
// hit is lit by the interpolated gradient. The preview and the final sample grid planes; the
// trilinear final marches at sample_stepsize and blends up to four extra isosurfaces in.
// With edge_enabled each ends in detect_edges instead of the plain copy.
constexpr int firsthit_lattice = 16;  // the preview's first lattice
void render_firsthit_preview(RenderTarget* target, uint32_t* voxels, float* ipos, float* ifor,
                             float* iup, float* istr);
void render_firsthit_final(RenderTarget* target, uint32_t* voxels, float* ipos, float* ifor,
                           float* iup, float* istr);
void render_firsthit_final_trilinear(RenderTarget* target, uint32_t* voxels, float* ipos,
                                     float* ifor, float* iup, float* istr);

// Edge lines from the depth buffer, painted in edge_color over the target's colour on its way
// to the display (the window surface, or offscreen_pixels during a render to file): the last
// step of the three first-hit passes when edge_enabled is set, in place of show_image.
void detect_edges(const RenderTarget* target);

// Moves each of the four bytes of the packed colour a toward the same byte of b by the 15-bit
// fraction w (a weight f taken as truncate(f * 32767.0)): a + (((b - a) * w) >> 15), on signed
// 32 bits with an arithmetic shift, the sum kept in eight bits. At w = 0 it gives a, at 32767
// nearly b; the shift rounds toward minus infinity, so a falling byte comes out up to one
// level low. The one way in which shading and compositing touch a colour.
[[gnu::always_inline]] inline uint32_t color_lerp(uint32_t a, uint32_t b, int32_t w)
{
    uint32_t out = 0;
    for (int shift = 0; shift < 32; shift += 8) {
        const int32_t ca = (int32_t)((a >> shift) & 0xff), cb = (int32_t)((b >> shift) & 0xff);
        out |= (uint32_t)((ca + (((cb - ca) * w) >> 15)) & 0xff) << shift;
    }
    return out;
}

// The three-tone face shading of light model 1 (cuberille, and the plane-sampling first hit
// without interpolation): a y face is lightened, a z face and a ray's first cell darkened,
// an x face left as it is. Each byte moves 5000 / 32768 of the way toward its target, so that
// the two directions are not symmetric: 100 lightens to 123 but darkens to 84; 0 lightens to
// 38 and 255 darkens to 216. Lightening aims at 0x00ffffff, so a top byte is pulled toward 0.
inline uint32_t lighten(uint32_t c) { return color_lerp(c, 0x00ffffffu, 5000); }
inline uint32_t darken(uint32_t c) { return color_lerp(c, 0u, 5000); }
// Light model 1's tone of a colour c by the face the ray entered its cell through (entry_face
// of the walk): an x face keeps it, a y face lightens it, a z face or the ray's first cell
// (entered through no plane, -1) darkens it.
inline uint32_t face_tone(uint32_t c, int8_t entry_face)
{
    if (entry_face == 1) return c;
    if (entry_face == 2) return lighten(c);
    return darken(c);
}

// ---------------------------------------------------------------------------------------------
// The abstract view (view_kind 10, abstract.cpp): the volume's box and the cutting shape of
// cut_kind, intersected in closed form and lit, on every second pixel of every second line, each
// copied to its right, lower and diagonal neighbours inside the image. Reads no voxel. A pixel
// no ray hits keeps what stood in color.
void render_abstract_view(RenderTarget* target, uint32_t* voxels, float* ipos, float* ifor,
                          float* iup, float* istr);
// The eye lies in the box by the inclusive test of the walk's frame; set by each abstract view.
extern bool box_eye_inside;
// Each sets *out_distance to 4194304 (nothing) first, then to the distance of a hit along the
// direction (a true distance, in voxels), and gives the hit surface's normal.
// The box's face a ray meets, 1 to 6 (x = 0, x = vol_x, y = vol_y, y = 0, z = 0, z = vol_z), or
// 0: from outside the faces it enters by, from inside (box_eye_inside) those it leaves by. The
// normals face into the box.
int ray_box_face(const float* direction, const float* eye, float* out_normal, float* out_distance);
// The cutting plane, drawn as a disc of radius vol_diag around -cut_plane_n * cut_plane_d: 1 or
// 0; the normal is cut_plane_n.
int ray_plane(const float* direction, const float* eye, float* out_normal, float* out_distance);
// The cutting sphere: 1 entering from outside (normal toward the centre), -1 leaving from inside
// (normal away from it), 0 no hit.
int ray_sphere(const float* direction, const float* eye, float* out_normal, float* out_distance);
