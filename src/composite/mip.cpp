// mip.cpp — render mode 4, maximum intensity projection: each pixel shows the one sample of its
// ray that the transfer function makes most opaque, in that sample's colour, unlit. The maximum
// is taken over classified opacity, not over density; of equal opacities the nearest sample
// stays, and a ray ends once its maximum reaches 0.975.
//
// Called through the pass table (the frame loop's dispatch, render to file, tavok-render).
// Reads voxels, block_map, the lookup tables, interp_mode, faint_whisps, sample_stepsize and
// max_ray_steps; writes only the RenderTarget. The lattice, the finals' polling and the
// samples are the projection drivers' (projection.h); this file is the per-ray state.
#include <cstdint>

#include "composite/composite.h"
#include "composite/projection.h"

namespace {

// The state of one ray. Voxel samples keep the density of the strongest sample and look its
// colour up when the ray is done; plane and trilinear samples keep their interpolated colour.
//
// A ray ends once its maximum reaches 0.975 (the float 0x3f79999a). A ray of voxel samples
// also ends once its maximum reaches the greatest opacity of the table: every later sample is
// a table entry too, so none can be strictly greater, and the pixel is already what the rest
// of the ray would leave. That is the same picture, sooner (bone of the table's top opacity
// ends the ray at the first bone voxel). Interpolated samples can come out a hair above every
// entry they blend, so their rays keep the one rule.
template <SampleKind kind, bool faint>
struct MipRay {
    float max_alpha = 0.0f;
    uint32_t max_density = 0;
    uint32_t max_color = 0;
    float stop = 0.975f;  // the smaller of 0.975 and, for voxel samples, the table's greatest opacity

    // Strictly greater, so that the nearer of equal opacities stays.
    template <class Density, class Color>
    TAVOK_INLINE bool take(float o, Density&& density, Color&& color)
    {
        if (max_alpha < o) {
            max_alpha = o;
            if constexpr (kind == SampleKind::voxel) max_density = density();
            else max_color = color();
        }
        return max_alpha >= stop;
    }

    TAVOK_INLINE uint32_t finish(const Classification& t) const
    {
        const uint32_t c = kind == SampleKind::voxel ? t.colors[max_density] : max_color;
        return faint ? faint_scale(c, max_alpha) : c;
    }
    TAVOK_INLINE uint32_t finish_preview(const Classification& t) const { return finish(t); }
};

// The greatest opacity of the table, or 0.975 when that is smaller.
float stop_opacity()
{
    float top = 0.0f;
    for (int d = 0; d < 4096; ++d) top = opacity_lut[d] > top ? opacity_lut[d] : top;
    return top < 0.975f ? top : 0.975f;
}

struct Mip {
    static constexpr auto preview = render_mip_preview;
    template <SampleKind kind, class F>
    TAVOK_INLINE static void ray(F&& f)
    {
        const float stop = kind == SampleKind::voxel ? stop_opacity() : 0.975f;
        if (faint_whisps) f(MipRay<kind, true>{.stop = stop});
        else f(MipRay<kind, false>{.stop = stop});
    }
};

}  // namespace

void render_mip_preview(RenderTarget* target, uint32_t* voxels, float* ipos, float* ifor, float* iup,
                        float* istr)
{
    projection_preview<Mip>(target, voxels, ipos, ifor, iup, istr);
}

void render_mip_final(RenderTarget* target, uint32_t* voxels, float* ipos, float* ifor, float* iup,
                      float* istr)
{
    projection_final<Mip>(target, voxels, ipos, ifor, iup, istr);
}

void render_mip_final_trilinear(RenderTarget* target, uint32_t* voxels, float* ipos, float* ifor,
                                float* iup, float* istr)
{
    projection_final_trilinear<Mip>(target, voxels, ipos, ifor, iup, istr);
}
