// slices.cpp — the slice view (render mode 12). Owns the slice_* state. Reads voxels, the two
// lookup tables and the view constants; writes only render_target.color, and the camera frame
// when it builds the plane's basis (so that the 3D button looks from the plane).
//
// Called by the frame loop's dispatch (render_slices as the preview of mode 12), the load path
// and the loaders (reset_slices), the slice widgets' handlers and input. It allocates nothing
// and must not touch depth, mask or any other buffer.
#include <cmath>
#include <cstring>

#include "core/core.h"
#include "core/seam.h"
#include "slices/slices.h"
#include "transfer/transfer.h"
#include "volume/volume.h"

float slice_center[3] = {0.0f, 0.0f, 0.0f};
float slice_normal_unit[3] = {1.0f, 0.0f, 0.0f};
float slice_u[3] = {0.0f, 0.0f, 0.0f};
float slice_v[3] = {0.0f, 0.0f, 0.0f};

// The second half of the basis: from the unit normal slice_normal_unit and the eye's distance
// to the plane, the centre, both image axes and the camera.
static void place_slice_plane(float dist)
{
    const float nx = slice_normal_unit[0], ny = slice_normal_unit[1], nz = slice_normal_unit[2];
    slice_center[0] = (float)(vol_x / 2) - nx * dist;
    slice_center[1] = (float)(vol_y / 2) - ny * dist;
    slice_center[2] = (float)(vol_z / 2) - nz * dist;

    // An in-plane vector: two points of the plane, at (+1, +1) and (-1, -1) in the two axes
    // that are not solved for. The solved axis is the one of the largest component, so the
    // division never meets a zero (a normal with all components near zero was replaced).
    const float d = slice_d;
    const float ax = fabsf(nx), ay = fabsf(ny), az = fabsf(nz);
    float w[3];
    if (az <= ay && ax < ay) {
        w[0] = 2.0f;
        w[2] = 2.0f;
        w[1] = (-d - nx - nz) / ny - (nx - d + nz) / ny;
    } else if (az > ay && ax < az) {
        w[0] = 2.0f;
        w[1] = 2.0f;
        w[2] = (-d - nx - ny) / nz - (nx - d + ny) / nz;
    } else {
        w[1] = 2.0f;
        w[2] = 2.0f;
        w[0] = (-d - ny - nz) / nx - (ny - d + nz) / nx;
    }
    normalize3(w);

    cross3(slice_normal_unit, w, slice_v);
    normalize3(slice_v);
    cross3(slice_v, slice_normal_unit, slice_u);
    normalize3(slice_u);
    for (int i = 0; i < 3; ++i) {
        iup[i] = slice_v[i];
        istr[i] = slice_u[i];
        ipos[i] = slice_center[i];
        ifor[i] = slice_normal_unit[i];
    }
}

void make_slice_basis()
{
    if (fabsf(slice_normal[0]) < 0.005f && fabsf(slice_normal[1]) < 0.005f &&
        fabsf(slice_normal[2]) < 0.005f) {
        slice_normal[0] = 1.0f;
        slice_normal[1] = 0.0f;
        slice_normal[2] = 0.0f;
    }
    float dist = slice_d + slice_zoom;
    normalize3(slice_normal);
    for (int i = 0; i < 3; ++i) slice_normal_unit[i] = slice_normal[i];
    place_slice_plane(dist);
}

void reset_slices()
{
    set_slice_settings();
    slice_x = vol_x / 2;
    slice_y = vol_y / 2;
    slice_z = vol_z / 2;

    // The handlers run here: each slider's handler truncates back to the same index.
    set_widget_value("GUIsliderXY", slice_slider_position(slice_z, vol_z));
    set_widget_value("GUIsliderXZ", slice_slider_position(slice_y, vol_y));
    set_widget_value("GUIsliderYZ", slice_slider_position(slice_x, vol_x));
    set_widget_value("GUIsliderZoom", slice_zoom * 0.0009765625);

    // The sliders' handlers may have turned the 3D switch off, which puts the camera's forward
    // into the normal: the normal and the view axis go back to x here.
    for (int i = 0; i < 3; ++i) slice_normal[i] = slice_normal_unit[i] = i == 0 ? 1.0f : 0.0f;
    place_slice_plane(slice_d + slice_zoom);
}

void move_slice_along_view(float distance)
{
    if (!slice_recenter) {
        for (int i = 0; i < 3; ++i) slice_center[i] -= distance * slice_normal_unit[i];
    } else {
        float f = slice_zoom + slice_d;
        slice_center[0] = (float)(vol_x / 2) - f * slice_normal_unit[0];
        slice_center[1] = (float)(vol_y / 2) - f * slice_normal_unit[1];
        slice_center[2] = (float)(vol_z / 2) - f * slice_normal_unit[2];
    }
    for (int i = 0; i < 3; ++i) ipos[i] = slice_center[i];
}

// ---------------------------------------------------------------------------------------------
// Colour arithmetic, all in 15-bit fixed point on the four bytes of a word.

// Each byte times a / 32768, a = opacity * 32767 truncated.
[[gnu::always_inline]] static inline uint32_t weigh(uint32_t c, float opacity)
{
    int a = (int)(opacity * 32767.0);
    uint32_t out = 0;
    for (int shift = 0; shift < 32; shift += 8)
        out |= (uint32_t)(((int)((c >> shift) & 0xff) * a) >> 15) << shift;
    return out;
}

// c0 + (c1 - c0) * f / 32768 per byte, the product signed and shifted arithmetically, so each
// byte stays between its two ends. Equal words (most neighbours of a slice) skip the work.
[[gnu::always_inline]] static inline uint32_t mix(uint32_t c0, uint32_t c1, int f)
{
    if (c0 == c1) return c0;
    uint32_t out = 0;
    for (int shift = 0; shift < 32; shift += 8) {
        int a = (int)((c0 >> shift) & 0xff), b = (int)((c1 >> shift) & 0xff);
        out |= (uint32_t)((a + (((b - a) * f) >> 15)) & 0xff) << shift;
    }
    return out;
}

// The axis slice of one kind, stamped out per use of opacity and filter. p and q are the
// picture's two grid axes with sizes a and b; the voxel at (p, q) has index fixed + p * sp +
// q * sq, so one walk serves XY, XZ and YZ.
template <bool Filter, bool UseTf>
static void walk_axis_slice(RenderTarget* target, const uint32_t* voxels, uint32_t a, uint32_t b,
                            size_t fixed, size_t sp, size_t sq)
{
    const uint32_t* const clut = color_lut;
    const float* const olut = opacity_lut;
    const uint32_t width = target->width, height = target->height;
    uint32_t* const color = target->color;
    const float fa = (float)a, fb = (float)b;
    const float cx = slice_center[0], cz = slice_center[2];
    const ViewExtents v = view_extents(target);
    const float half_extent_str = v.half_str, half_extent_up = v.half_up, pixel_step = v.pixel_step;

    // The view axis is y for every axis slice: its component of the direction is the same for
    // the whole picture, so the distance factor s is one division per image.
    const float dir_y = slice_normal_unit[1] - half_extent_str * slice_u[1] - half_extent_up * slice_v[1];
    const float s = slice_zoom / dir_y;
    float dir_x = -half_extent_str * slice_u[0] - half_extent_up * slice_v[0];
    float dir_z = -half_extent_str * slice_u[2] - half_extent_up * slice_v[2];
    const float px_x = pixel_step * slice_u[0], px_z = pixel_step * slice_u[2];
    const float ln_x = pixel_step * slice_v[0], ln_z = pixel_step * slice_v[2];

    for (uint32_t row = 0; row < height; ++row) {
        const float line_x = dir_x, line_z = dir_z;
        uint32_t* out = color + (size_t)row * width;
        for (uint32_t col = 0; col < width; ++col, dir_x += px_x, dir_z += px_z) {
            const float p = dir_x * s + cx;
            const float q = dir_z * s + cz;
            // NaN (a view parallel to the slice) fails these tests too.
            if (!(p >= 0.0f && p < fa && q >= 0.0f && q < fb)) continue;
            const uint32_t ip = (uint32_t)p, iq = (uint32_t)q;
            const size_t index = fixed + ip * sp + iq * sq;
            const uint32_t dA = voxel_word(voxels, index) & density_mask;
            if constexpr (!Filter) {
                out[col] = UseTf ? weigh(clut[dA], olut[dA]) : clut[dA];
            } else {
                const bool along_p = ip + 1 < a, along_q = iq + 1 < b;
                const float fp = p - (float)ip, fq = q - (float)iq;
                const float gp = (float)ip - p + 1.0f, gq = (float)iq - q + 1.0f;  // 1 - f
                const int wp = (int)(fp * 32767.0), wq = (int)(fq * 32767.0);
                const uint32_t A = clut[dA];
                uint32_t c;
                float op = 0.0f;
                if (along_p && along_q) {
                    const uint32_t dB = voxel_word(voxels, index + sp) & density_mask;
                    const uint32_t dC = voxel_word(voxels, index + sq) & density_mask;
                    const uint32_t dD = voxel_word(voxels, index + sp + sq) & density_mask;
                    c = mix(mix(A, clut[dB], wp), mix(clut[dC], clut[dD], wp), wq);
                    if (UseTf)
                        op = fq * (fp * olut[dD] + gp * olut[dC]) + gq * (gp * olut[dA] + fp * olut[dB]);
                } else if (along_p) {
                    const uint32_t dB = voxel_word(voxels, index + sp) & density_mask;
                    c = mix(mix(A, clut[dB], wp), 0, wq);
                    if (UseTf) op = (gp * olut[dA] + fp * olut[dB]) * gq;
                } else if (along_q) {
                    const uint32_t dC = voxel_word(voxels, index + sq) & density_mask;
                    c = mix(mix(A, 0, wp), mix(clut[dC], 0, wp), wq);
                    if (UseTf) op = gp * (gq * olut[dA] + fq * olut[dC]);
                } else {
                    c = A;
                    if (UseTf) op = olut[dA];
                }
                out[col] = UseTf ? weigh(c, op) : c;
            }
        }
        dir_x = line_x + ln_x;
        dir_z = line_z + ln_z;
    }
}

// The arbitrary plane: each pixel's ray from slice_center meets the plane at t = rhs / (n . dir).
// Never filtered.
template <bool UseTf>
static void walk_plane_slice(RenderTarget* target, const uint32_t* voxels, float rhs)
{
    const uint32_t* const clut = color_lut;
    const float* const olut = opacity_lut;
    const uint32_t width = target->width, height = target->height;
    uint32_t* const color = target->color;
    const float fx = (float)vol_x, fy = (float)vol_y, fz = (float)vol_z;
    const uint32_t vy = vol_y, vz = vol_z;
    const float n0 = slice_normal[0], n1 = slice_normal[1], n2 = slice_normal[2];
    const float c0 = slice_center[0], c1 = slice_center[1], c2 = slice_center[2];
    const ViewExtents v = view_extents(target);
    const float half_extent_str = v.half_str, half_extent_up = v.half_up, pixel_step = v.pixel_step;

    float dir[3], px[3], ln[3];
    for (int i = 0; i < 3; ++i) {
        dir[i] = slice_normal_unit[i] - half_extent_str * slice_u[i] - half_extent_up * slice_v[i];
        px[i] = pixel_step * slice_u[i];
        ln[i] = pixel_step * slice_v[i];
    }
    for (uint32_t row = 0; row < height; ++row) {
        const float line[3] = {dir[0], dir[1], dir[2]};
        uint32_t* out = color + (size_t)row * width;
        for (uint32_t col = 0; col < width; ++col) {
            // A plane parallel to the ray gives an infinite or invalid t, which fails the tests.
            const float t = rhs / (n0 * dir[0] + n1 * dir[1] + n2 * dir[2]);
            const float x = dir[0] * t + c0, y = dir[1] * t + c1, z = dir[2] * t + c2;
            if (x >= 0.0f && x < fx && y >= 0.0f && y < fy && z >= 0.0f && z < fz) {
                const uint32_t d = voxel_word(voxels, ((uint32_t)x * vz + (uint32_t)z) * vy + (uint32_t)y) & density_mask;
                out[col] = UseTf ? weigh(clut[d], olut[d]) : clut[d];
            }
            dir[0] += px[0];
            dir[1] += px[1];
            dir[2] += px[2];
        }
        for (int i = 0; i < 3; ++i) dir[i] = line[i] + ln[i];
    }
}

void render_slices(RenderTarget* target, uint32_t* voxels)
{
    float rhs = 0.0f;
    if (slice_kind == 3) {
        if (slice_recenter) make_slice_basis();
        rhs = -slice_d - (slice_center[0] * slice_normal[0] + slice_center[1] * slice_normal[1] +
                          slice_center[2] * slice_normal[2]);
    }

    // The two grid axes of an axis slice: sizes (a, b) and index strides (sp, sq); the fixed
    // coordinate's share of the index is constant.
    uint32_t a = 0, b = 0;
    size_t fixed = 0, sp = 0, sq = 0;
    const size_t plane_x = (size_t)vol_y * vol_z;
    switch (slice_kind) {
    case 0: a = vol_x, b = vol_y, fixed = (size_t)slice_z * vol_y, sp = plane_x, sq = 1; break;
    case 1: a = vol_x, b = vol_z, fixed = slice_y, sp = plane_x, sq = vol_y; break;
    case 2: a = vol_y, b = vol_z, fixed = slice_x * plane_x, sp = 1, sq = vol_y; break;
    default: break;
    }
    if (slice_kind != 3 && slice_recenter) {
        slice_normal_unit[0] = 0.0f, slice_normal_unit[1] = -1.0f, slice_normal_unit[2] = 0.0f;
        slice_u[0] = -1.0f, slice_u[1] = 0.0f, slice_u[2] = 0.0f;
        slice_v[0] = 0.0f, slice_v[1] = 0.0f, slice_v[2] = 1.0f;
        slice_center[0] = (float)(a / 2);
        slice_center[2] = (float)(b / 2);
    }

    if (slice_kind == 3) {
        if (slice_use_tf) walk_plane_slice<true>(target, voxels, rhs);
        else walk_plane_slice<false>(target, voxels, rhs);
    } else if (slice_filter == 1) {
        if (slice_use_tf) walk_axis_slice<true, true>(target, voxels, a, b, fixed, sp, sq);
        else walk_axis_slice<true, false>(target, voxels, a, b, fixed, sp, sq);
    } else {
        if (slice_use_tf) walk_axis_slice<false, true>(target, voxels, a, b, fixed, sp, sq);
        else walk_axis_slice<false, false>(target, voxels, a, b, fixed, sp, sq);
    }
    show_image(target);
}
