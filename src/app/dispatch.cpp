// dispatch.cpp — runs the passes of the row of render_mode (passes.h). Called by the frame
// loop, render to file and tavok-render; writes nothing but the buffers it clears.
#include <cstring>

#include "app/passes.h"
#include "core/seam.h"
#include "volume/volume.h"

bool mode_is_rendered(int mode)
{
    const RenderPass* row = find_pass(mode);
    return row && row->preview;
}

void run_preview()
{
    const RenderPass* row = find_pass(render_mode);
    if (row && row->preview) row->preview(&render_target, voxels, ipos, ifor, iup, istr);
}

bool run_final()
{
    const RenderPass* row = find_pass(render_mode);
    if (!row || !row->preview || !row->final) return false;
    PassFunction final = row->final;
    if (interp_mode == interp_trilinear && row->final_trilinear) {
        final = row->final_trilinear;
        if (row->clear_before_trilinear) clear_frame_buffers();
    }
    final(&render_target, voxels, ipos, ifor, iup, istr);
    return true;
}

bool pause_rule_met()
{
    const RenderPass* row = find_pass(render_mode);
    return !(row && row->pause_rule) || ticks_ms() - last_double_click > 350u;
}

void clear_frame_buffers()
{
    size_t pixels = (size_t)render_target.width * render_target.height;
    memset(render_target.color, 0, pixels * 4);
    memset(render_target.depth, 0, pixels * 4);
    memset(render_target.mask, 0, pixels / 4 * 4);
}
