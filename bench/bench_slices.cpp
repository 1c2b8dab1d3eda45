// bench_slices.cpp — times the slice view (render_slices) at 512 x 409 (the image of the
// default window) and at 1024 x 1024 (render to file) for the four slice kinds, nearest and
// bilinear, with and without the opacity weighting. Prints the median and the fastest of
// RUNS runs after a warm-up, and an FNV-1a hash of each image, so that a speed-up that changes
// pixels shows at once. The slice view has no preview stage: it has to keep up with a dragged
// slider by itself.
//
// bench-slices [VOLUME.dat ...]   (no arguments: the phantom and the CT head when it is there)
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>
#include <unistd.h>

#include "bench_common.h"
#include "app/app.h"
#include "app/passes.h"
#include "core/core.h"
#include "core/headless/seam_null.h"
#include "slices/slices.h"
#include "transfer/transfer.h"
#include "volume/volume.h"

static int RUNS = 15, WARMUP = 3;

static void bench_case(const char* what, int kind, int filter, int use_tf)
{
    reset_slices();
    slice_kind = kind;
    slice_filter = filter;
    slice_use_tf = use_tf;
    // The arbitrary plane through the middle of the grid, slanted.
    if (kind == 3) {
        slice_normal[0] = 0.3f, slice_normal[1] = 0.5f, slice_normal[2] = 0.8f;
        make_slice_basis();
        slice_d = -(slice_normal[0] * (vol_x / 2) + slice_normal[1] * (vol_y / 2) + slice_normal[2] * (vol_z / 2));
    }
    const size_t n = (size_t)render_target.width * render_target.height;
    std::vector<double> times;
    for (int i = 0; i < WARMUP + RUNS; ++i) {
        memset(render_target.color, 0, n * 4);
        double t0 = now_ms();
        render_slices(&render_target, voxels);
        if (i >= WARMUP) times.push_back(now_ms() - t0);
    }
    std::sort(times.begin(), times.end());
    printf("  %-30s median %7.3f ms  min %7.3f ms  %6.1f Mpixel/s  hash %08x\n", what, times[times.size() / 2],
           times[0], n / (times[times.size() / 2] * 1000.0), fnv1a(render_target.color, n));
}

static void bench_size(uint32_t w, uint32_t h)
{
    alloc_frame_buffers(w, h, h);
    compute_view_constants();
    printf(" %u x %u pixels\n", w, h);
    static const char* const kinds[4] = {"XY", "XZ", "YZ", "plane"};
    for (int kind = 0; kind < 4; ++kind)
        for (int filter = 0; filter < 2; ++filter)
            for (int use_tf = 0; use_tf < 2; ++use_tf) {
                if (kind == 3 && filter) continue;  // the plane is never filtered
                char what[64];
                snprintf(what, sizeof what, "%s%s%s", kinds[kind], filter ? " bilinear" : " nearest",
                         use_tf ? " opacity" : "");
                bench_case(what, kind, filter, use_tf);
            }
}

int main(int argc, char** argv)
{
    start_library(512, 512);
    if (const char* runs = getenv("TAVOK_BENCH_RUNS")) {
        RUNS = atoi(runs) > 0 ? atoi(runs) : 1;
        WARMUP = 0;
    }
    printf("slice view, median of %d runs after %d warm-up runs\n", RUNS, WARMUP);
    std::vector<std::string> paths;
    for (int i = 1; i < argc; ++i) paths.push_back(argv[i]);
    if (paths.empty()) {
        std::string phantom = std::string(TAVOK_BUILD_DIR) + "/phantom.dat";
        if (access(phantom.c_str(), R_OK) == 0) paths.push_back(phantom);
        std::string head = std::string(TAVOK_SHARED_DATA) + "/ct-head-256x256x108.dat";
        if (access(head.c_str(), R_OK) == 0) paths.push_back(head);
        else printf("%s is absent: the CT head is skipped\n", head.c_str());
    }
    for (const std::string& p : paths) {
        // The editor strip of a load is sized from the window and the image: the window's.
        window_width = window_height = 512;
        alloc_frame_buffers(512, 409, 409);
        if (!load_dat_volume(p.c_str())) continue;
        printf("%s (%u x %u x %u grid)\n", p.c_str(), vol_x, vol_y, vol_z);
        bench_size(512, 409);
        bench_size(1024, 1024);
    }
    return 0;
}
