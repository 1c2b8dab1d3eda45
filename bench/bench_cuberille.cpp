// bench_cuberille.cpp — times the cuberille preview and final at 512 x 409 (the image of the
// default window) on the phantom and on the real volumes, from two cameras: outside the
// volume looking at its centre, and the view that the load path leaves (the slice plane's
// camera). Prints medians over RUNS runs after a warm-up, rays/s and cells/s, and an FNV-1a
// hash of each image, so that a speed-up that changes pixels shows at once.
//
// It also carries a cuberille final walk written out by hand, without the walk template of
// walk.h, and prints both times and their ratio: the template must cost nothing. That hand
// version lives here only; the program renders with the template.
//
// bench-cuberille [VOLUME.dat ...]   (no arguments: the phantom and every volume it finds)
#include <algorithm>
#include <chrono>
#include <cmath>
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
#include "raycast/raycast.h"
#include "raycast/walk.h"
#include "transfer/transfer.h"
#include "volume/volume.h"

// TAVOK_BENCH_RUNS=n overrides the number of timed runs (for a profiler run, say).
static int RUNS = 15, WARMUP = 3;

static void clear_buffers()
{
    size_t n = (size_t)render_target.width * render_target.height;
    memset(render_target.color, 0, n * 4);
    memset(render_target.depth, 0, n * 4);
    memset(render_target.mask, 0, n);
}

// The fastest run, printed beside the median: on a machine shared with other work the
// minimum shows what the code costs when it has a core to itself.
static double last_min_ms;

template <class F> static double median_ms(F&& run, bool clear_first)
{
    std::vector<double> times;
    for (int i = 0; i < WARMUP + RUNS; ++i) {
        if (clear_first) clear_buffers();
        double t0 = now_ms();
        run();
        double t = now_ms() - t0;
        if (i >= WARMUP) times.push_back(t);
    }
    std::sort(times.begin(), times.end());
    last_min_ms = times[0];
    return times[times.size() / 2];
}

// The template and the hand-written final, run in turn so that both see the same load from
// whatever else the machine does; medians and minimums of each.
struct Pair {
    double a_median, a_min, b_median, b_min;
};
template <class A, class B> static Pair paired_ms(A&& run_a, B&& run_b)
{
    std::vector<double> ta, tb;
    for (int i = 0; i < WARMUP + RUNS; ++i) {
        double t0 = now_ms();
        run_a();
        double t1 = now_ms();
        run_b();
        double t2 = now_ms();
        if (i >= WARMUP) ta.push_back(t1 - t0), tb.push_back(t2 - t1);
    }
    std::sort(ta.begin(), ta.end());
    std::sort(tb.begin(), tb.end());
    return {ta[ta.size() / 2], ta[0], tb[tb.size() / 2], tb[0]};
}

// ---------------------------------------------------------------------------------------------
// The cuberille final of light model 0 with the walk written out by hand: the same rules and
// the same means as walk.h (lookups only on brick crossings, runs through empty cubes computed
// where they end), with every piece spelled out in one function and no template, lambda or
// record in sight. The template is measured against this.
static int64_t hand_count(int64_t last, int64_t t, int64_t dt, float inverse_dt)
{
    int64_t s = last - t + dt;
    s = s < 0 ? 0 : s;
    int64_t k = (int64_t)((float)s * inverse_dt);
    while (k * dt > s) --k;
    while ((k + 1) * dt <= s) ++k;
    return k;
}

[[gnu::noinline]] static void hand_cuberille_final(RenderTarget* target, uint32_t* vox, float* ipos, float* ifor,
                                 float* iup, float* istr)
{
    RayFrame f;
    setup_ray_frame(f, &render_target, ipos, ifor, iup, istr);
    const uint32_t W = target->width, H = target->height;
    const uint32_t sx = vol_x, sy = vol_y, sz = vol_z, bz = block_z, by = block_y;
    const int64_t str_x = (int64_t)vol_y * vol_z, str_z = vol_y;
    const uint32_t* const bricks = block_map;
    const uint8_t* const radius = block_empty_radius;
    const float* const opacity = opacity_lut;
    const uint32_t* const colors = color_lut;
    const uint32_t limit = max_ray_steps;
    float line[3] = {f.first[0], f.first[1], f.first[2]};
    for (uint32_t y = 0; y < H; ++y) {
        float dir[3] = {line[0], line[1], line[2]};
        uint32_t* row = target->color + (size_t)y * W;
        for (uint32_t x0 = 0; x0 < W; ++x0) {
            uint32_t pixel = 0;
            float entry[3];
            const float* p = f.eye;
            if (!f.eye_inside) {
                if (!ray_box_entry(dir, f.eye, entry)) goto store;
                p = entry;
            }
            {
                // Ray start: sign rule, fixed point, strides.
                int32_t cx = trunc_i32(p[0]), cy = trunc_i32(p[1]), cz = trunc_i32(p[2]);
                int32_t stx, sty, stz, tx, ty, tz, dtx, dty, dtz;
                float d0 = dir[0], d1 = dir[1], d2 = dir[2], fx, fy, fz;
                if (d0 < 0.0f) stx = -1, fx = p[0] - (float)cx;
                else { stx = 1, fx = (float)(cx + 1) - p[0]; if (d0 < 0.0001f) d0 = 0.0001f; }
                if (d1 < 0.0f) sty = -1, fy = p[1] - (float)cy;
                else { sty = 1, fy = (float)(cy + 1) - p[1]; if (d1 < 0.0001f) d1 = 0.0001f; }
                if (d2 < 0.0f) stz = -1, fz = p[2] - (float)cz;
                else { stz = 1, fz = (float)(cz + 1) - p[2]; if (d2 < 0.0001f) d2 = 0.0001f; }
                const float i0 = 1.0f / d0, i1 = 1.0f / d1, i2 = 1.0f / d2;
                dtx = trunc_i32((float)stx * i0 * 4096.0f), tx = trunc_i32(fx * fabsf(i0) * 4096.0f);
                dty = trunc_i32((float)sty * i1 * 4096.0f), ty = trunc_i32(fy * fabsf(i1) * 4096.0f);
                dtz = trunc_i32((float)stz * i2 * 4096.0f), tz = trunc_i32(fz * fabsf(i2) * 4096.0f);
                float rx = 0.0f, ry = 0.0f, rz = 0.0f;  // 1 / dt raised by 2^-20, at the first run
                bool have_r = false;
                const int64_t ix = stx > 0 ? str_x : -str_x, iy = sty, iz = stz > 0 ? str_z : -str_z;
                const int32_t ex = (stx >> 1) & 7, ey = (sty >> 1) & 7, ez = (stz >> 1) & 7;
                int64_t index = ((int64_t)cx * sz + cz) * sy + cy;
                uint32_t steps = 0;
                // A first cell outside the grid: step in without visiting.
                while (!(((uint32_t)cx < sx) & ((uint32_t)cy < sy) & ((uint32_t)cz < sz))) {
                    if (tx < ty && tx < tz) { cx += stx; if ((uint32_t)cx >= sx) goto store; tx = wrap_add(tx, dtx); index += ix; }
                    else if (tx >= ty && ty < tz) { cy += sty; if ((uint32_t)cy >= sy) goto store; ty = wrap_add(ty, dty); index += iy; }
                    else { cz += stz; if ((uint32_t)cz >= sz) goto store; tz = wrap_add(tz, dtz); index += iz; }
                    if (++steps >= limit) goto store;
                }
                bool known = false;
                for (;;) {
                    const uint32_t word = vox[index];
                    const float a = opacity[word & 0xfff];
                    if (a >= 0.2f && a <= 1.0f) { pixel = colors[word & 0xfff]; goto store; }
                    bool crossed;
                    if (tx < ty) {
                        if (tx < tz) { cx += stx; if ((uint32_t)cx >= sx) goto store; crossed = (cx & 7) == ex; tx = wrap_add(tx, dtx); index += ix; }
                        else { cz += stz; if ((uint32_t)cz >= sz) goto store; crossed = (cz & 7) == ez; tz = wrap_add(tz, dtz); index += iz; }
                    } else if (ty < tz) { cy += sty; if ((uint32_t)cy >= sy) goto store; crossed = (cy & 7) == ey; ty = wrap_add(ty, dty); index += iy; }
                    else { cz += stz; if ((uint32_t)cz >= sz) goto store; crossed = (cz & 7) == ez; tz = wrap_add(tz, dtz); index += iz; }
                    if (crossed || !known) {
                        uint32_t brick = (((uint32_t)cx >> 3) * bz + ((uint32_t)cz >> 3)) * by + ((uint32_t)cy >> 3);
                        while (bricks[brick] == 0) {
                            // Run through the empty cube around this brick.
                            const int32_t span = 8 * radius[brick];
                            const int64_t nx = stx > 0 ? 8 - (cx & 7) + span : (cx & 7) + 1 + span;
                            const int64_t ny = sty > 0 ? 8 - (cy & 7) + span : (cy & 7) + 1 + span;
                            const int64_t nz = stz > 0 ? 8 - (cz & 7) + span : (cz & 7) + 1 + span;
                            const int64_t ax = tx + (nx - 1) * dtx, ay = ty + (ny - 1) * dty, az = tz + (nz - 1) * dtz;
                            const int64_t my = -(int64_t)(ay <= ax);
                            int64_t e = (ay & my) | (ax & ~my);
                            const int64_t mz = -(int64_t)(az <= e);
                            e = (az & mz) | (e & ~mz);
                            const int leaving = (int)(mz & 2) | (int)(my & ~mz & 1);
                            const int64_t dmax = dtx > dty ? (dtx > dtz ? dtx : dtz) : (dty > dtz ? dty : dtz);
                            int64_t kx, ky, kz;
                            if (((dtx <= 0) | (dty <= 0) | (dtz <= 0)) || e + dmax > INT32_MAX) {
                                // t could wrap: step through this brick one cell at a time.
                                const int32_t x1 = cx, y1 = cy, z1 = cz;
                                for (;;) {
                                    if (tx < ty && tx < tz) { cx += stx, tx = wrap_add(tx, dtx); if ((cx & 7) == ex) break; }
                                    else if (tx >= ty && ty < tz) { cy += sty, ty = wrap_add(ty, dty); if ((cy & 7) == ey) break; }
                                    else { cz += stz, tz = wrap_add(tz, dtz); if ((cz & 7) == ez) break; }
                                }
                                kx = (cx - x1) * stx, ky = (cy - y1) * sty, kz = (cz - z1) * stz;
                            } else {
                                if (!have_r) {
                                    rx = 1.00000095f / (float)dtx, ry = 1.00000095f / (float)dty, rz = 1.00000095f / (float)dtz;
                                    have_r = true;
                                }
                                kx = hand_count(e - (leaving > 0), tx, dtx, rx);
                                ky = hand_count(e - (leaving > 1), ty, dty, ry);
                                kz = hand_count(e, tz, dtz, rz);
                                cx += (int32_t)kx * stx, cy += (int32_t)ky * sty, cz += (int32_t)kz * stz;
                                tx = (int32_t)(tx + kx * dtx), ty = (int32_t)(ty + ky * dty), tz = (int32_t)(tz + kz * dtz);
                            }
                            steps += (uint32_t)(kx + ky + kz);
                            index += kx * ix + ky * iy + kz * iz;
                            if (!(((uint32_t)cx < sx) & ((uint32_t)cy < sy) & ((uint32_t)cz < sz))) goto store;
                            brick = (((uint32_t)cx >> 3) * bz + ((uint32_t)cz >> 3)) * by + ((uint32_t)cy >> 3);
                        }
                    }
                    known = true;
                    if (++steps >= limit) goto store;
                }
            }
        store:
            row[x0] = pixel;
            for (int a = 0; a < 3; ++a) dir[a] = dir[a] + f.pixel_inc[a];
        }
        for (int a = 0; a < 3; ++a) line[a] = line[a] + f.line_inc[a];
    }
    show_image(target);
}

// ---------------------------------------------------------------------------------------------
// Work of one final image: rays cast, cells visited (read) by the walk, rays that hit, and
// cells passed, that is every cell a ray goes through in the grid up to its hit or the
// grid's edge, whether the walk reads it or jumps over it; counted by stepping a copy of each
// ray one cell at a time, outside the timed runs.
struct Work {
    uint64_t rays = 0, visits = 0, passed = 0, hits = 0;
};
static Work count_final_work()
{
    RayFrame f;
    setup_ray_frame(f, &render_target, ipos, ifor, iup, istr);
    const GridView g = grid_view(voxels);
    Work work;
    float line[3] = {f.first[0], f.first[1], f.first[2]};
    for (uint32_t y = 0; y < render_target.height; ++y) {
        float dir[3] = {line[0], line[1], line[2]};
        for (uint32_t x = 0; x < render_target.width; ++x) {
            float entry[3];
            const float* p = f.eye;
            if (f.eye_inside || (p = entry, ray_box_entry(dir, f.eye, entry))) {
                work.rays += 1;
                RayWalk w;
                start_walk(w, g, p, p, dir);
                if (cell_inside(w, g) || enter_grid<false>(w, g)) {
                    RayWalk start = w;
                    bool hit = walk_ray<Form::final_pass, false>(w, g, [&](const RayWalk& w) {
                        work.visits += 1;
                        float a = opacity_lut[voxels[w.index] & 0xfff];
                        return a >= 0.2f && a <= 1.0f;
                    });
                    work.hits += hit;
                    const int64_t end = hit ? w.index : -1;
                    uint64_t cells = 1;
                    bool crossed;
                    while (start.index != end && cells < g.max_steps && guarded_step<false>(start, g, crossed))
                        cells += 1;
                    work.passed += cells;
                }
            }
            for (int a = 0; a < 3; ++a) dir[a] = dir[a] + f.pixel_inc[a];
        }
        for (int a = 0; a < 3; ++a) line[a] = line[a] + f.line_inc[a];
    }
    return work;
}

// Outside the volume, one diagonal from its centre, looking at the centre from an oblique
// direction.
static void outside_camera()
{
    float c[3] = {vol_x * 0.5f, vol_y * 0.5f, vol_z * 0.5f};
    float d[3] = {0.8f, -0.45f, 0.4f};
    normalize3(d);
    for (int i = 0; i < 3; ++i) ipos[i] = c[i] - d[i] * vol_diag;
    const float up[3] = {0.0f, 0.0f, 1.0f};
    look_along(d, up);
}

static void bench_camera(const char* name)
{
    clamp_forward();
    refresh = 0;
    const size_t n = (size_t)render_target.width * render_target.height;
    double preview = median_ms([] { render_cuberille_preview(&render_target, voxels, ipos, ifor, iup, istr); }, true);
    double preview_min = last_min_ms;
    uint32_t preview_hash = fnv1a(render_target.color, n);
    render_cuberille_final(&render_target, voxels, ipos, ifor, iup, istr);
    uint32_t final_hash = fnv1a(render_target.color, n);
    hand_cuberille_final(&render_target, voxels, ipos, ifor, iup, istr);
    uint32_t hand_hash = fnv1a(render_target.color, n);
    Pair pair = paired_ms([] { render_cuberille_final(&render_target, voxels, ipos, ifor, iup, istr); },
                          [] { hand_cuberille_final(&render_target, voxels, ipos, ifor, iup, istr); });
    double final_ms = pair.a_median, final_min = pair.a_min, hand = pair.b_median, hand_min = pair.b_min;
    Work work = count_final_work();
    printf("  %-22s preview %7.3f ms (min %7.3f)  [%08x]\n", name, preview, preview_min, preview_hash);
    printf("  %-22s final   %7.3f ms (min %7.3f)  [%08x]\n", "", final_ms, final_min, final_hash);
    printf("  %-22s hand    %7.3f ms (min %7.3f)  [%08x]  template/hand: median %.3f, min %.3f%s\n", "",
           hand, hand_min, hand_hash, final_ms / hand, final_min / hand_min,
           final_hash == hand_hash ? "" : "  IMAGES DIFFER");
    printf("  %-22s final: %llu rays (%.1f%% hit), %.1f cells read and %.1f passed a ray;"
           " %.2f Mrays/s, %.0f Mcells/s passed\n",
           "", (unsigned long long)work.rays, work.rays ? 100.0 * work.hits / work.rays : 0.0,
           work.rays ? (double)work.visits / work.rays : 0.0,
           work.rays ? (double)work.passed / work.rays : 0.0, work.rays / final_ms * 1e-3,
           work.passed / final_ms * 1e-3);
}

static void bench_volume(const std::string& path)
{
    if (access(path.c_str(), R_OK) != 0) {
        printf("%s: not found, skipped\n", path.c_str());
        return;
    }
    // The load's own log lines go to stdout; keep them out of the figures.
    fflush(stdout);
    FILE* saved = stdout;
    stdout = fopen("/dev/null", "w");
    bool loaded = load_volume_file(path.c_str());
    fclose(stdout);
    stdout = saved;
    if (!loaded) {
        printf("%s: could not be loaded, skipped\n", path.c_str());
        return;
    }
    printf("%s (%u x %u x %u grid, %u x %u x %u bricks)\n", path.c_str(), vol_x, vol_y, vol_z,
           block_x, block_y, block_z);
    // The camera the load path leaves: the slice plane's (reset_slices).
    bench_camera("start view (load path)");
    outside_camera();
    bench_camera("outside, at the centre");
}

int main(int argc, char** argv)
{
    start_library(512, 512);
    render_mode = 0;
    if (const char* runs = getenv("TAVOK_BENCH_RUNS")) {
        RUNS = atoi(runs) > 0 ? atoi(runs) : 1;
        WARMUP = 0;
    }
    printf("cuberille, %u x %u pixels, light model 0, median of %d runs after %d warm-up runs\n",
           render_target.width, render_target.height, RUNS, WARMUP);

    std::vector<std::string> paths;
    for (int i = 1; i < argc; ++i) paths.push_back(argv[i]);
    if (paths.empty()) {
        paths.push_back(std::string(TAVOK_BUILD_DIR) + "/phantom.dat");
        const char* names[] = {"ct-head-256x256x108.dat", "ct-headsq-64x64x93.dat",
                               "ct-chest-128x128x66.dat", "mri-head-181x217x181.dat",
                               "xct-soil-192x192x100.dat", "embryo-128x128x128.dat",
                               "ct-stent-128x128x256.dat"};
        if (access(TAVOK_SHARED_DATA, R_OK) != 0)
            printf("%s is absent: the real volumes are skipped\n", TAVOK_SHARED_DATA);
        else
            for (const char* n : names) paths.push_back(std::string(TAVOK_SHARED_DATA) + "/" + n);
    }
    for (const std::string& p : paths) bench_volume(p);
    return 0;
}
