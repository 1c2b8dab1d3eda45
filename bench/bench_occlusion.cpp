// bench_occlusion.cpp — times "Precalculate Occlusions" (the worker thread, start to end) on
// the phantom and on the real volumes, in the hard and the soft model, against a baseline
// measured in the same run: the calculation written out plainly from its rules
// (tests/unit/occlusion_reference.h) with the two-step atomic store of every result. Both
// start from the field a load leaves (0x80 everywhere), run in turn so that both see the same
// load from whatever else the machine does, and must store the very same field: a speed-up
// that changes one voxel is reported at once. Also times a second press, when the field
// already holds the results.
//
// bench-occlusion [--iso N] [--runs N] [VOLUME.dat ...]
//   (no volume: the phantom and every volume of the shared data; isovalue 1400 by default)
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bench_common.h"
#include "app/app.h"
#include "core/core.h"
#include "transfer/transfer.h"
#include "unit/occlusion_reference.h"
#include "volume/volume.h"

static int RUNS = 7, WARMUP = 1;

// Processor time of the whole process: the main thread sleeps in the wait while the worker
// runs, so this is the worker's time, and it is less disturbed than the clock by other work
// on a shared machine.
static double cpu_ms()
{
    timespec t;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return t.tv_sec * 1e3 + t.tv_nsec * 1e-6;
}

// The baseline: every voxel, every step, and the store as two atomic steps.
static void baseline_occlusion()
{
    uint32_t* words = voxels;
    reference_occlusion(words, vol_x, vol_y, vol_z, light_dir, shadow_stepsize, shadow_kind, isovalue,
                        opacity_lut, [&](size_t i, uint32_t r) {
                            __atomic_fetch_and(words + i, 0xffffu, __ATOMIC_RELAXED);
                            __atomic_fetch_or(words + i, r << 16, __ATOMIC_RELAXED);
                        });
}

static void program_occlusion()
{
    start_occlusion();
    wait_for_occlusion();
}

static std::vector<uint8_t> field()
{
    size_t n = (size_t)vol_x * vol_y * vol_z;
    std::vector<uint8_t> f(n);
    for (size_t i = 0; i < n; ++i) f[i] = (uint8_t)(voxels[i] >> 16);
    return f;
}

static void bench_model(int kind)
{
    shadow_kind = kind;
    std::vector<double> base, prog, again, base_cpu, prog_cpu;
    std::vector<uint8_t> expected;
    bool same = true;
    for (int k = 0; k < WARMUP + RUNS; ++k) {
        fill_occlusion(0x80);
        double c0 = cpu_ms(), t0 = now_ms();
        baseline_occlusion();
        double c1 = cpu_ms(), t1 = now_ms();
        if (k == 0) expected = field();
        fill_occlusion(0x80);
        quiet(true);
        double c2 = cpu_ms(), t2 = now_ms();
        program_occlusion();
        double c3 = cpu_ms(), t3 = now_ms();
        program_occlusion();
        double t4 = now_ms();
        quiet(false);
        if (field() != expected) same = false;
        if (k >= WARMUP) {
            base.push_back(t1 - t0), prog.push_back(t3 - t2), again.push_back(t4 - t3);
            base_cpu.push_back(c1 - c0), prog_cpu.push_back(c3 - c2);
        }
    }
    size_t n = expected.size(), zeros = 0, full = 0;
    for (uint8_t v : expected) zeros += v == 0, full += v == 255;
    double b = median(base), p = median(prog), a = median(again);
    double bc = median(base_cpu), pc = median(prog_cpu);
    printf("  %s: program %7.1f ms, baseline %7.1f ms, baseline/program %.2f (processor time: %.1f ms,"
           " %.1f ms, %.2f); second press %.1f ms; %.1f%% at 0, %.1f%% at 255%s\n",
           kind == 1 ? "soft" : "hard", p, b, b / p, pc, bc, bc / pc, a, 100.0 * zeros / n,
           100.0 * full / n, same ? "" : "  RESULTS DIFFER");
}

static void bench_volume(const std::string& path)
{
    if (access(path.c_str(), R_OK) != 0) {
        printf("%s: not found, skipped\n", path.c_str());
        return;
    }
    quiet(true);
    bool loaded = load_volume_file(path.c_str());
    quiet(false);
    if (!loaded) {
        printf("%s: could not be loaded, skipped\n", path.c_str());
        return;
    }
    printf("%s (%u x %u x %u grid)\n", path.c_str(), vol_x, vol_y, vol_z);
    bench_model(2);
    bench_model(1);
}

int main(int argc, char** argv)
{
    start_library(512, 512);
    std::vector<std::string> paths;
    int iso = 1400;
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--iso") == 0 && i + 1 < argc) iso = atoi(argv[++i]);
        else if (strcmp(argv[i], "--runs") == 0 && i + 1 < argc) RUNS = std::max(1, atoi(argv[++i]));
        else paths.push_back(argv[i]);
    }
    printf("occlusion, isovalue %d, light (%.3f, %.3f, %.3f), step %.2f, grey opacity; median of %d runs"
           " after %d warm-up run\n",
           iso, light_dir[0], light_dir[1], light_dir[2], shadow_stepsize, RUNS, WARMUP);
    if (paths.empty()) {
        paths.push_back(std::string(TAVOK_BUILD_DIR) + "/phantom.dat");
        const char* names[] = {"ct-head-256x256x108.dat", "mri-head-181x217x181.dat",
                               "xct-soil-192x192x100.dat", "ct-chest-128x128x66.dat"};
        if (access(TAVOK_SHARED_DATA, R_OK) != 0)
            printf("%s is absent: the real volumes are skipped\n", TAVOK_SHARED_DATA);
        else
            for (const char* n : names) paths.push_back(std::string(TAVOK_SHARED_DATA) + "/" + n);
    }
    for (const std::string& p : paths) {
        isovalue = iso;
        bench_volume(p);
    }
    stop_shadow_thread();
    return 0;
}
