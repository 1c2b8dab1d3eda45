// raycast.h — the first-hit ray casters and the skeleton all ray casters share: frame set-up,
// ray-box entry, the integer walk with brick skipping, and the adaptive preview lattice.
//
// Every pass reads voxels, gradients, block_map, the lookup tables and the settings, writes
// only the RenderTarget, and ends by showing the image (show_image).
#pragma once
#include <cstdint>

#include "core/core.h"

// Pixel distance of the first preview lattice, set by each preview and read by the finals.
extern int lattice_step;

void render_cuberille_preview(RenderTarget* target, uint32_t* voxels, float* ipos, float* ifor,
                              float* iup, float* istr);
void render_cuberille_final(RenderTarget* target, uint32_t* voxels, float* ipos, float* ifor,
                            float* iup, float* istr);
