// exit.cpp — clean_up_and_exit, the program's only way out: keys, window close, panel close
// and every fatal error pass through here. Safe to call before the window exists and from
// handlers inside a final pass.
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "core/core.h"
#include "core/seam.h"
#include "transfer/transfer.h"
#include "volume/volume.h"

void clean_up_and_exit(int status, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    vfprintf(stderr, format, args);
    va_end(args);

    // The worker writes into voxels: it ends before anything is freed.
    stop_shadow_thread();

    free(voxels);
    free(gradients);
    free(block_map);
    free(render_target.color);
    free(render_target.depth);
    free(render_target.mask);
    free(tf_pixels);
    voxels = nullptr;
    gradients = nullptr;
    block_map = nullptr;
    render_target.color = render_target.depth = nullptr;
    render_target.mask = nullptr;
    tf_pixels = nullptr;
    if (volume_loaded) free_transfer_nodes();

    close_display();
    putchar('\n');
    fflush(stdout);
    exit(status);
}
