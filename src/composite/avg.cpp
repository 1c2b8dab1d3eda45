// avg.cpp — render mode 6, average value projection ("X-ray image"): each pixel shows the mean
// of the samples along its ray that the transfer function does not hide, unlit, with no early
// end. The previews and the plain final average density and classify the mean; the trilinear
// final averages classified colours. Every mean is taken over one more than the number of
// samples (the count starts at 1): a single sample of density 1000 means 500, and short paths
// through the object come out darker than long ones. That is wanted and must stay.
//
// Called through the pass table (the frame loop's dispatch, render to file, tavok-render).
// Reads voxels, block_map, the lookup tables, interp_mode, faint_whisps, sample_stepsize and
// max_ray_steps; writes only the RenderTarget. The lattice, the finals' polling and the
// samples are the projection drivers' (projection.h); this file is the per-ray state.
#include <cstdint>
#include <type_traits>

#include "composite/composite.h"
#include "composite/projection.h"

namespace {

// The state of one ray. A sample that counts adds its opacity (needed only for faint_whisps)
// and its density (walk samples) or the three channels of its colour (trilinear samples).
//
// whole_sum: the densities are voxel densities, whole numbers below 4096, and a ray can't take
// enough of them to pass 2^24 (max_ray_steps of 4096 or less: at most max_ray_steps + 1 samples
// of at most 4095). Every partial sum is then exact in a float, so adding them as integers and
// converting once at the end gives the float sum to the bit.
template <SampleKind kind, bool faint, bool whole_sum>
struct AvgRay {
    uint32_t sample_count = 1;
    float sum_alpha = 0.0f;
    std::conditional_t<whole_sum, uint32_t, float> sum_density = 0;
    uint32_t sum_r = 0, sum_g = 0, sum_b = 0;

    template <class Density, class Color>
    TAVOK_INLINE bool take(float o, Density&& density, Color&& color)
    {
        if (faint) sum_alpha += o;
        if constexpr (kind == SampleKind::trilinear) {
            const uint32_t c = color();
            sum_r += (c >> 16) & 0xff, sum_g += (c >> 8) & 0xff, sum_b += c & 0xff;
        } else {
            sum_density += density();
        }
        sample_count += 1;
        return false;  // no early end
    }

    // The mean density as a float. The extra count keeps it below 4095 on any ray but for
    // single-precision error, which can lift it to 4095 or a little above (thousands of
    // samples of 4095 added in floats); that case keeps its rule, i = 4095 mixing toward the
    // entry below. Only a mean of 4096 or more, which would read past the tables, is held
    // just below 4096.
    TAVOK_INLINE float mean_density() const
    {
        const float mean = (float)sum_density / (float)sample_count;
        return mean < 4096.0f ? mean : 4095.9998f;
    }

    TAVOK_INLINE uint32_t faint_finish(uint32_t c) const
    {
        return faint ? faint_scale(c, sum_alpha / (float)sample_count) : c;
    }

    // The preview takes one table entry at the truncated mean.
    TAVOK_INLINE uint32_t finish_preview(const Classification& t) const
    {
        return faint_finish(t.colors[trunc_i32(mean_density())]);
    }

    // The plain final mixes the entry at the truncated mean with the next one (the one below at
    // 4095) by the mean's fraction; the trilinear final takes the integer mean of each channel.
    TAVOK_INLINE uint32_t finish(const Classification& t) const
    {
        if constexpr (kind == SampleKind::trilinear) {
            const uint32_t n = sample_count;
            return faint_finish((sum_r / n) << 16 | (sum_g / n) << 8 | sum_b / n);
        } else {
            const float mean = mean_density();
            const int32_t i = trunc_i32(mean);
            const uint32_t next = i < 4095 ? t.colors[i + 1] : t.colors[i - 1];
            return faint_finish(color_lerp(t.colors[i], next, trunc_i32((mean - (float)i) * 32767.0f)));
        }
    }
};

struct Avg {
    static constexpr auto preview = render_avg_preview;

    template <SampleKind kind, bool whole_sum, class F>
    TAVOK_INLINE static void with_faint(F&& f)
    {
        if (faint_whisps) f(AvgRay<kind, true, whole_sum>{});
        else f(AvgRay<kind, false, whole_sum>{});
    }
    template <SampleKind kind, class F>
    TAVOK_INLINE static void ray(F&& f)
    {
        if constexpr (kind == SampleKind::voxel) {
            if (max_ray_steps <= 4096) return with_faint<kind, true>(f);
        }
        with_faint<kind, false>(f);
    }
};

}  // namespace

void render_avg_preview(RenderTarget* target, uint32_t* voxels, float* ipos, float* ifor, float* iup,
                        float* istr)
{
    projection_preview<Avg>(target, voxels, ipos, ifor, iup, istr);
}

void render_avg_final(RenderTarget* target, uint32_t* voxels, float* ipos, float* ifor, float* iup,
                      float* istr)
{
    projection_final<Avg>(target, voxels, ipos, ifor, iup, istr);
}

void render_avg_final_trilinear(RenderTarget* target, uint32_t* voxels, float* ipos, float* ifor,
                                float* iup, float* istr)
{
    projection_final_trilinear<Avg>(target, voxels, ipos, ifor, iup, istr);
}
