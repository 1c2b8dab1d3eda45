// final.h — the driver of every final pass, written once: the line loop with its polling of
// the user, the per-pixel direction discipline, the start of a final's ray, and the choice of
// an option's template instance once per pass.
//
// A final pass is then its per-line (or per-pixel) work and nothing else:
//
//   RayFrame f;  setup_ray_frame(f, target, ipos, ifor, iup, istr);
//   bool done = run_final_lines<Polling::odd_lines>(target, f, voxels,
//       [&](uint32_t y, const float* line_dir, const GridView& g) {
//           line_pixels(f, line_dir, target->width, [&](uint32_t x, const float* dir) {
//               RayWalk w;  float p[3];
//               if (start_final_ray<false>(w, g, f, dir, p, 0) == RayStart::in_grid)
//                   walk_ray<Form::final_pass, false>(w, g, [&](const RayWalk& w) { ... });
//               ...
//           });
//       },
//       [&] { /* what the pass does when the user broke in at the start of a line */ });
//
// Used by every final pass of src/raycast and src/composite. Writes nothing but what the
// pass's own lambdas write; the polling pumps both event sources (panel handlers and input
// run inside it) and moves GUIprogressBar.
#pragma once
#include <cstdint>
#include <type_traits>

#include "core/core.h"
#include "raycast/walk.h"

// How a final lets the user in.
enum class Polling {
    // Before every odd line: pump, progress bar, and on refresh color and depth are cleared and
    // the pass gives up (its stop step draws a preview in their place). Line 0 always runs.
    // The cuberille, firsthit, mip and avg finals.
    odd_lines,
    // Before every line: pump, progress bar, and refresh or the open colour dialog stop the
    // pass. The rbs and ics finals and the firsthit trilinear final.
    every_line,
    // As every_line, and before every pixel whose x is a multiple of 8 as well (line_pixels
    // with poll_inside): the mip, avg, rbs and ics trilinear finals.
    inside_lines,
};

// The poll at the start of line y: both pumps, then the progress bar at y / height (the height
// before the pumps, which may resize the window). True when the pass must give up: with
// odd_lines when refresh is set (color and depth are then cleared over width * height, mask is
// kept); with the other rules when refresh is set or the colour dialog is open.
bool poll_final_line(RenderTarget* target, uint32_t y, Polling polling);
// The poll inside a line (inside_lines): both pumps; true when refresh is set or the colour
// dialog is open.
bool poll_inside_line();

// The line loop of a final. line(y, line_dir, grid) renders line y, whose first ray has the
// direction line_dir; directions advance from line to line by single-precision addition of
// the line increment. The grid view is taken afresh after every poll, since a handler that ran
// inside it (a blur, a cut) may have replaced the gradients and the brick map. When a poll
// says to give up, stop(y) runs and the loop ends. Returns true when every line was rendered.
template <Polling polling, class Line, class Stop>
TAVOK_INLINE bool run_final_lines(RenderTarget* target, const RayFrame& f, const uint32_t* voxel_words,
                                  Line&& line, Stop&& stop)
{
    const uint32_t height = target->height;
    float dir[3] = {f.first[0], f.first[1], f.first[2]};
    GridView g = grid_view(voxel_words);
    for (uint32_t y = 0; y < height; ++y) {
        if (polling != Polling::odd_lines || (y & 1)) {
            if (poll_final_line(target, y, polling)) {
                stop(y);
                return false;
            }
            g = grid_view(voxel_words);
        }
        line(y, (const float*)dir, static_cast<const GridView&>(g));
        for (int a = 0; a < 3; ++a) dir[a] = dir[a] + f.line_inc[a];
    }
    return true;
}

// The pixels of one line, x from 0: pixel(x, dir) casts the ray of pixel x. The direction is
// saved before the ray (which may clamp its own copy) and advanced by single-precision
// addition of the pixel increment, never recomputed. With poll_inside, the user is polled
// before every pixel whose x is a multiple of 8 (x = 0 included); when that says to stop, the
// line ends there and line_pixels returns false.
template <bool poll_inside = false, class Pixel>
TAVOK_INLINE bool line_pixels(const RayFrame& f, const float* line_dir, uint32_t width, Pixel&& pixel)
{
    float dir[3] = {line_dir[0], line_dir[1], line_dir[2]};
    for (uint32_t x = 0; x < width; ++x) {
        if (poll_inside && (x & 7) == 0 && poll_inside_line()) return false;
        const float saved[3] = {dir[0], dir[1], dir[2]};
        pixel(x, (const float*)saved);
        for (int a = 0; a < 3; ++a) dir[a] = saved[a] + f.pixel_inc[a];
    }
    return true;
}

// Where a final's ray stands after its start.
enum class RayStart {
    missed_box,    // the eye is outside and the ray never meets the box
    outside_grid,  // it meets the box but never gets into the grid (walked out, or out of steps)
    in_grid,       // the walk stands on its first cell in the grid
};

// The start of a final's ray: p is the eye when it lies in the box, otherwise the point where
// the ray enters the box (ray_box_entry). The walk is set up from p (start_walk) with cross_t at
// first_cross_t. A first cell outside the grid (the eye on a far face, or an entry on the far
// edge of a face) is never read: the ray is stepped on until it is inside (enter_grid); with
// keep_prev_cross_t those steps move the walk's prev_cross_t, which the caller sets before.
template <bool keep_cross_t, bool keep_prev_cross_t = false>
TAVOK_INLINE RayStart start_final_ray(RayWalk& w, const GridView& g, const RayFrame& f,
                                      const float* dir, float* p, int32_t first_cross_t)
{
    if (f.eye_inside) {
        p[0] = f.eye[0], p[1] = f.eye[1], p[2] = f.eye[2];
    } else if (!ray_box_entry(dir, f.eye, p)) {
        return RayStart::missed_box;
    }
    start_walk(w, g, p, p, dir);
    w.cross_t = first_cross_t;
    if (cell_inside(w, g) || enter_grid<keep_cross_t, keep_prev_cross_t>(w, g)) return RayStart::in_grid;
    return RayStart::outside_grid;
}

// Calls f(std::integral_constant<int, v>{}) for the value v among Values that equals value, or
// for the first of Values when none does: how a pass turns a setting (light model, a flag)
// into a template parameter once per pass or per line.
//   choose<0, 1, 2>(light_model, [&](auto model) { pass_line<model>(...); });
template <int First, int... Rest, class F>
TAVOK_INLINE void choose(int value, F&& f)
{
    bool done = false;
    ((!done && value == Rest ? (f(std::integral_constant<int, Rest>{}), done = true) : false), ...);
    if (!done) f(std::integral_constant<int, First>{});
}
