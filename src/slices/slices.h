// slices.h — the slice view (render mode 12): three axis slices and an arbitrary plane.
// Owns the slice_* state. reset_slices and make_slice_basis also place the camera on the
// plane, so that the 3D view shows the volume from the slice.
//
// Writers of the slice state: reset_slices (start and every load), the slice widgets' handlers
// (src/panel), input (keys, mouse) and make_slice_basis / render_slices themselves. Readers:
// render_slices, and the 3D view through the camera that make_slice_basis places.
#pragma once
#include <cstdint>

#include "core/core.h"

// The slice settings (slice_kind, slice_x/y/z, slice_zoom, slice_d, slice_recenter,
// slice_use_tf, slice_filter, slice_normal) are rows of the settings table (core/settings.h).
// Indexes stay below their grid size: reset_slices halves the sizes, the sliders map 0..1
// onto 0..size-1, input steps with a bound.

// The view of the slice. In axis slices slice_center's x and z components are the centre of
// the picture along the slice's two axes (p and q), its y is not used.
extern float slice_center[3];       // point the eye looks at
extern float slice_normal_unit[3];  // view axis; (0, -1, 0) in recentred axis slices
extern float slice_u[3];            // image axis along a row, partner of istr
extern float slice_v[3];            // image axis between rows, partner of iup

// Draws the current slice into target->color (pixels off the volume keep the frame loop's 0)
// and shows it like every pass (show_image). The preview of mode 12; there is no final.
void render_slices(RenderTarget* target, uint32_t* voxels);
// Normalises slice_normal (a normal with every component below 0.005 in magnitude becomes
// (1, 0, 0)), builds slice_u, slice_v and slice_center, and puts the camera on the plane.
void make_slice_basis();
// Start values: the XY slice through the middle, zoom 256, and the sliders set to match (their
// handlers run). Called at start-up and after every load.
void reset_slices();
// Moves slice_center along the view axis (recentred: places it at zoom + d before the centre).
void move_slice_along_view(float distance);

// The slider position that stands for a slice index: (index + 0.5) / (size - 1), in the
// unsigned arithmetic of the sizes. The half keeps the handler's truncation on the same index.
inline double slice_slider_position(uint32_t index, uint32_t size)
{
    return (index + 0.5) / (double)(size - 1);
}
// The slice index that a slider position stands for: (size - 1) * position, truncated. With no
// volume (size 0) every position is slice 0.
inline uint32_t slice_index_at(uint32_t size, double position)
{
    if (size == 0) return 0;
    return (uint32_t)(int)((size - 1) * position);
}
