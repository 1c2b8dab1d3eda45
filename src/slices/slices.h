// slices.h — the slice view (render mode 12): three axis slices and an arbitrary plane.
// Owns the slice_* state. reset_slices and make_slice_basis also place the camera on the
// plane, so that the 3D view shows the volume from the slice.
#pragma once
#include <cstdint>

#include "core/core.h"

extern int slice_kind;         // 0 XY, 1 XZ, 2 YZ, 3 arbitrary plane
extern uint32_t slice_x;       // x of the YZ slice
extern uint32_t slice_y;       // y of the XZ slice
extern uint32_t slice_z;       // z of the XY slice
extern float slice_zoom;       // voxels across the short side of the image, 3 .. 1024
extern float slice_d;          // plane equation d
extern int slice_recenter;     // the slice stays centred in the window
extern int slice_use_tf;       // weight colours with opacity
extern int slice_filter;       // 1 bilinear, otherwise nearest voxel
extern float slice_center[3];  // point the eye looks at; axis slices use x and z only
extern float slice_normal[3];  // nx, ny, nz of nx*x + ny*y + nz*z + d = 0
extern float slice_normal_unit[3];
extern float slice_u[3];       // image axis along a row, partner of istr
extern float slice_v[3];       // image axis between rows, partner of iup

void render_slices(RenderTarget* target, uint32_t* voxels);
void make_slice_basis();
void reset_slices();
void move_slice_along_view(float distance);
