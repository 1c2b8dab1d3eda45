// occlusion_reference.h — the occlusion calculation written out plainly from its rules, one
// voxel and one step at a time, with nothing skipped: the slow, obviously right version that
// the tests and bench-occlusion hold the worker against. Single precision throughout, as the
// worker computes. Used by tests/unit and bench; not part of the program.
#pragma once
#include <cstdint>
#include <vector>

// The occlusion of every voxel of an X x Y x Z grid of words (y fastest, then z, then x), for
// light_dir, stepsize, shadow_kind (1 soft, else hard), isovalue and opacity table as given,
// handed to store(index, result) voxel by voxel in the order of the walk.
template <class Store>
void reference_occlusion(const uint32_t* words, uint32_t X, uint32_t Y, uint32_t Z, const float light[3],
                         float stepsize, int kind, int iso, const float* opacity, Store&& store)
{
    const float s[3] = {-light[0] * stepsize, -light[1] * stepsize, -light[2] * stepsize};
    for (uint32_t z = 0; z < Z; ++z)
        for (uint32_t y = 0; y < Y; ++y)
            for (uint32_t x = 0; x < X; ++x) {
                const size_t i = ((size_t)x * Z + z) * Y + y;
                const uint32_t d = words[i] & 0xfff;
                if (d < 501 || opacity[d] <= 0.15f) {
                    store(i, 255u);
                    continue;
                }
                float px = (float)x + 0.5f, py = (float)y + 0.5f, pz = (float)z + 0.5f;
                float acc = 0.0f;
                int result = -1;
                for (;;) {
                    px += s[0];
                    py += s[1];
                    pz += s[2];
                    const uint32_t vx = (uint32_t)(int32_t)(px + 0.5f);
                    const uint32_t vy = (uint32_t)(int32_t)(py + 0.5f);
                    const uint32_t vz = (uint32_t)(int32_t)(pz + 0.5f);
                    if (vx >= X || vy >= Y || vz >= Z) break;
                    if (vx == x && vy == y && vz == z) continue;
                    const uint32_t dd = words[((size_t)vx * Z + vz) * Y + vy] & 0xfff;
                    if (kind == 1) {
                        const float t = opacity[dd] * 1.5f;
                        if (t > acc) {
                            acc = t;
                            if (t > 1.0f) {
                                result = 0;
                                break;
                            }
                        }
                        if (!(acc <= 0.975f)) break;
                    } else if ((int)dd >= iso) {
                        result = 0;
                        break;
                    }
                }
                store(i, (uint32_t)(result >= 0 ? result : (int32_t)((1.0f - acc) * 255.0f)));
            }
}

// The same, as a vector of results in word order.
inline std::vector<uint8_t> reference_occlusion(const uint32_t* words, uint32_t X, uint32_t Y, uint32_t Z,
                                                const float light[3], float stepsize, int kind, int iso,
                                                const float* opacity)
{
    std::vector<uint8_t> out((size_t)X * Y * Z);
    reference_occlusion(words, X, Y, Z, light, stepsize, kind, iso, opacity,
                        [&](size_t i, uint32_t r) { out[i] = (uint8_t)r; });
    return out;
}
