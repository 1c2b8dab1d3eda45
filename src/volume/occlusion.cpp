// occlusion.cpp — the occlusion worker thread. Owns shadow_thread; the worker reads densities
// and opacity_lut and writes only the occlusion bits of the voxel words.
#include <thread>

#include "core/core.h"
#include "volume/volume.h"

static std::thread shadow_thread;

void stop_shadow_thread()
{
    shadow_cancel = 1;
    if (shadow_thread.joinable()) shadow_thread.join();
}
