// grid.cpp — the globals of the volume room: the grid, its histogram, the derived gradients
// and brick map, the occlusion progress, the memory budget of a load and the reason of the
// latest refused file. Written by the loaders, blur, cut and the occlusion worker; read by
// every pass.
#include <unistd.h>

#include <cstdarg>
#include <cstdio>

#include "volume/volume.h"

uint32_t* voxels = nullptr;
uint32_t vol_x = 0, vol_y = 0, vol_z = 0;
uint32_t histo[4096];
uint32_t max_histo = 1;
GradientRecord* gradients = nullptr;
uint32_t* block_map = nullptr;
uint32_t block_x = 0, block_y = 0, block_z = 0;
std::atomic<float> shadow_progress{0.0f};
uint64_t volume_memory_limit = 0;

uint64_t volume_memory_budget()
{
    if (volume_memory_limit) return volume_memory_limit;
    long pages = sysconf(_SC_PHYS_PAGES), page = sysconf(_SC_PAGESIZE);
    return pages > 0 && page > 0 ? (uint64_t)pages * (uint64_t)page : UINT64_MAX;
}

char load_refusal[8192];

bool refuse_volume(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    vsnprintf(load_refusal, sizeof load_refusal, format, args);
    va_end(args);
    printf("%s\n", load_refusal);
    return false;
}

void compute_max_histo()
{
    // Bins below 500 are left out: the noise threshold keeps those densities out of the grid.
    max_histo = 1;
    for (int i = 500; i < 4096; ++i)
        if (histo[i] > max_histo) max_histo = histo[i];
}

void fill_occlusion(uint16_t value)
{
    size_t count = (size_t)vol_x * vol_y * vol_z;
    uint32_t upper = (uint32_t)value << 16;
    for (size_t i = 0; i < count; ++i) voxels[i] = (voxels[i] & 0xffff) | upper;
}
