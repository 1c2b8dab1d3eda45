// passes.h — the table of render passes: one row per value of render_mode, which the frame
// loop's dispatch, its pause rule, render to file, tavok-render and the tests all read. What
// differs between the modes is said here once; a new pass is a new entry in its row, never a
// new case in a switch.
//
// A row whose preview is null is a mode this build does not render yet: the dispatch passes
// it over and tavok-render refuses it.
#pragma once
#include <cstdint>

#include "composite/composite.h"
#include "core/core.h"
#include "raycast/raycast.h"
#include "slices/slices.h"

// Every render pass takes the target, the grid and the camera frame ipos, ifor, iup, istr.
using PassFunction = void (*)(RenderTarget*, uint32_t*, float*, float*, float*, float*);

struct RenderPass {
    int mode;                       // the value of render_mode
    const char* name;               // the mode's name on tavok-render's command line
    PassFunction preview;           // quick pass on every change; null: not in this build
    PassFunction final;             // full image at interp_mode 0 and 1; null: no final pass
    PassFunction final_trilinear;   // full image at interp_mode 2; null: final serves it too
    bool clear_before_trilinear;    // color, depth and mask are cleared before the trilinear final
    int lattice;                    // the preview's first lattice step; 0: no lattice
    bool pause_rule;                // the final waits until the last double click in the editor
                                    // strip is more than 350 ms old
    bool preview_marks_mask;        // the preview marks each pixel it casts in mask
    bool final_keeps_preview_rays;  // the final (not the trilinear one) casts only the pixels the
                                    // preview did not cast, and column 0 in any case
};

// The slice view takes the target and the grid only.
constexpr PassFunction slices_pass = [](RenderTarget* target, uint32_t* voxel_words, float*,
                                        float*, float*, float*) {
    render_slices(target, voxel_words);
};

inline constexpr RenderPass render_passes[] = {
    // mode          name        preview                   final                   trilinear final
    //               clear  lattice            pause  mask   keeps
    {mode_cuberille, "cuberille", render_cuberille_preview, render_cuberille_final, nullptr,
                     false, cuberille_lattice, false, true,  false},
    {mode_firsthit,  "firsthit",  render_firsthit_preview,  render_firsthit_final,  render_firsthit_final_trilinear,
                     true,  firsthit_lattice,  false, false, false},
    {mode_mip,       "mip",       render_mip_preview,       render_mip_final,       render_mip_final_trilinear,
                     false, projection_lattice, true, true,  true},
    {mode_avg,       "avg",       render_avg_preview,       render_avg_final,       render_avg_final_trilinear,
                     false, projection_lattice, true, true,  true},
    {mode_rbs,       "rbs",       render_rbs_preview,       render_rbs_final,       render_rbs_final_trilinear,
                     false, surface_lattice,   true,  true,  false},
    {mode_ics,       "ics",       render_ics_preview,       render_ics_final,       render_ics_final_trilinear,
                     false, surface_lattice,   true,  true,  true},
    {mode_slices,    "slices",    slices_pass,              nullptr,                nullptr,
                     false, 0,                 false, false, false},
};

// The row of a render_mode value, or null when the value is no mode at all.
constexpr const RenderPass* find_pass(int mode)
{
    for (const RenderPass& row : render_passes)
        if (row.mode == mode) return &row;
    return nullptr;
}

// ---------------------------------------------------------------------------------------------
// The dispatch (dispatch.cpp), through the row of render_mode.

// render_mode has a preview in this build (and its final, where the mode has one).
bool mode_is_rendered(int mode);
// The preview of render_mode into render_target (the frame loop's preview path, render to file).
void run_preview();
// The final of render_mode for interp_mode (the trilinear one at interp_mode 2 where the mode
// has it, after clearing the buffers where the row says so). False when the mode has none.
bool run_final();
// The row's pause rule: a final that waits runs only when the last double click in the editor
// strip is more than 350 ms old (unsigned tick difference).
bool pause_rule_met();
// Clears color and depth, and mask in whole 32-bit words: width * height / 4 of them, so up to
// three trailing bytes of mask keep their value.
void clear_frame_buffers();
