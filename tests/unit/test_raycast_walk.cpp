// The shared ray skeleton: frame set-up, ray_box_entry, the ray start, the integer walk with
// its brick skipping and the two forms of the step limit. Hand-computed cases, and the fast
// walk against a slow reference that does every step one cell at a time as the rules say.
#include <gtest/gtest.h>

#include <climits>
#include <random>
#include <vector>

#include "raycast_helpers.h"

namespace {

// ---------------------------------------------------------------------------------------------
// The reference: the walk step by step, one brick at a time, with every field moved on every
// step, exactly in the order of the rules. Slow and plain; the fast walk must agree with it.
struct Visit {
    int64_t index;
    int32_t cross_t;
    int8_t face;
    uint32_t steps;
    bool operator==(const Visit& o) const
    {
        return index == o.index && cross_t == o.cross_t && face == o.face && steps == o.steps;
    }
};

int reference_axis(const RayWalk& w)
{
    if (w.t_x < w.t_y) return w.t_x < w.t_z ? 0 : 2;
    return w.t_y < w.t_z ? 1 : 2;
}

// Moves the ray one cell along axis a. Guarded: false if the new coordinate is outside.
bool reference_step(RayWalk& w, const GridView& g, int a, bool guarded)
{
    int32_t* cell[3] = {&w.x, &w.y, &w.z};
    int32_t step[3] = {w.step_x, w.step_y, w.step_z};
    int32_t* t[3] = {&w.t_x, &w.t_y, &w.t_z};
    int32_t dt[3] = {w.dt_x, w.dt_y, w.dt_z};
    int64_t stride[3] = {w.stride_x, w.stride_y, w.stride_z};
    uint32_t size[3] = {g.size_x, g.size_y, g.size_z};
    *cell[a] += step[a];
    if (guarded && (uint32_t)*cell[a] >= size[a]) return false;
    w.prev_cross_t = w.cross_t;
    w.cross_t = *t[a];
    *t[a] = wrap_add(*t[a], dt[a]);
    w.index += stride[a];
    w.entry_face = (int8_t)(a + 1);
    return true;
}

uint32_t reference_brick(const RayWalk& w, const GridView& g)
{
    return g.block_map[(((uint32_t)w.x >> 3) * g.block_z + ((uint32_t)w.z >> 3)) * g.block_y + ((uint32_t)w.y >> 3)];
}

template <Form form, class F> bool reference_walk(RayWalk& w, const GridView& g, F&& visit)
{
    if (visit(w)) return true;
    for (;;) {
        // Steps 2 and 3: axis choice and guarded step.
        if (!reference_step(w, g, reference_axis(w), true)) return false;
        // Step 4, and step 5 as long as it finds empty bricks.
        bool solid = reference_brick(w, g) != 0;
        while (!solid) {
            uint32_t bx = (uint32_t)w.x >> 3, by = (uint32_t)w.y >> 3, bz = (uint32_t)w.z >> 3;
            do {
                w.steps += 1;
                reference_step(w, g, reference_axis(w), false);
            } while (((uint32_t)w.x >> 3) == bx && ((uint32_t)w.y >> 3) == by && ((uint32_t)w.z >> 3) == bz);
            if ((uint32_t)w.x >= g.size_x || (uint32_t)w.y >= g.size_y || (uint32_t)w.z >= g.size_z) return false;
            if (reference_brick(w, g) != 0) break;
            // Back to step 2: a guarded step, then the brick test of step 4.
            w.steps += 1;
            if (!reference_step(w, g, reference_axis(w), true)) return false;
            solid = reference_brick(w, g) != 0;
        }
        // Step 6.
        if (form == Form::final_pass) {
            w.steps += 1;
            if (w.steps >= g.max_steps) return false;
        } else {
            if (w.steps >= g.max_steps) return false;
            w.steps += 1;
        }
        if (visit(w)) return true;
    }
}

void expect_same_state(const RayWalk& a, const RayWalk& b, const char* what)
{
    EXPECT_EQ(a.x, b.x) << what;
    EXPECT_EQ(a.y, b.y) << what;
    EXPECT_EQ(a.z, b.z) << what;
    EXPECT_EQ(a.t_x, b.t_x) << what;
    EXPECT_EQ(a.t_y, b.t_y) << what;
    EXPECT_EQ(a.t_z, b.t_z) << what;
    EXPECT_EQ(a.index, b.index) << what;
    EXPECT_EQ(a.steps, b.steps) << what;
    EXPECT_EQ(a.cross_t, b.cross_t) << what;
    EXPECT_EQ(a.entry_face, b.entry_face) << what;
}

// A ray along +x through cells (x, 1, 1) of a 20 x 3 x 3 grid whose only solid voxel is at
// x = 17: bricks x 0-7 and 8-15 are empty, 16-19 solid.
void make_line_grid(uint32_t density_at_17)
{
    make_grid(20, 3, 3, [&](int x, int y, int z) { return x == 17 && y == 1 && z == 1 ? density_at_17 : 0u; });
}

}  // namespace

// ---------------------------------------------------------------------------------------------
TEST(RayFrame, FirstRayAndIncrements)
{
    start_fresh();
    set_image(8, 4);  // wider than high: half_extent_up 0.5, half_extent_str 1.0, step 1/4
    make_grid(9, 9, 9, [](int, int, int) { return 0u; });
    set_camera(1.0f, 2.0f, 3.0f, 0.0f, 0.0f, -1.0f, 0.0f, 1.0f, 0.0f);  // istr = (-1, 0, 0)
    RayFrame f;
    setup_ray_frame(f, &render_target, ipos, ifor, iup, istr);
    EXPECT_TRUE(f.eye_inside);
    // ifor - istr * 1.0 - iup * 0.5
    EXPECT_EQ(f.first[0], 1.0f);
    EXPECT_EQ(f.first[1], -0.5f);
    EXPECT_EQ(f.first[2], -1.0f);
    EXPECT_EQ(f.pixel_inc[0], -0.25f);
    EXPECT_EQ(f.line_inc[1], 0.25f);
}

TEST(RayFrame, EyeInsideBoundsAreInclusive)
{
    start_fresh();
    make_grid(9, 7, 5, [](int, int, int) { return 0u; });
    RayFrame f;
    float eye[4] = {9.0f, 7.0f, 5.0f, 0.0f};  // the far corner: still inside
    setup_ray_frame(f, &render_target, eye, ifor, iup, istr);
    EXPECT_TRUE(f.eye_inside);
    eye[0] = 0.0f, eye[1] = 0.0f, eye[2] = 0.0f;
    setup_ray_frame(f, &render_target, eye, ifor, iup, istr);
    EXPECT_TRUE(f.eye_inside);
    eye[0] = 9.0001f;
    setup_ray_frame(f, &render_target, eye, ifor, iup, istr);
    EXPECT_FALSE(f.eye_inside);
    eye[0] = -0.0001f;
    setup_ray_frame(f, &render_target, eye, ifor, iup, istr);
    EXPECT_FALSE(f.eye_inside);
}

TEST(RayBoxEntry, PointingAwayNeverEnters)
{
    start_fresh();
    make_grid(10, 10, 10, [](int, int, int) { return 0u; });
    float eye[3] = {-5.0f, 5.0f, 5.0f}, out[3] = {-1, -1, -1};
    float away[3] = {-1.0f, 0.2f, 0.1f};
    EXPECT_FALSE(ray_box_entry(away, eye, out));
    float eye2[3] = {15.0f, 15.0f, 15.0f}, away2[3] = {1.0f, 0.5f, 0.5f};
    EXPECT_FALSE(ray_box_entry(away2, eye2, out));
    // Toward the box but passing beside it: every candidate falls outside a face.
    float beside[3] = {1.0f, 2.0f, 0.0f};
    EXPECT_FALSE(ray_box_entry(beside, eye, out));
}

TEST(RayBoxEntry, PositiveDirectionMeetsTheNearFace)
{
    start_fresh();
    make_grid(10, 10, 10, [](int, int, int) { return 0u; });
    float eye[3] = {-4.0f, 2.0f, 3.0f}, dir[3] = {2.0f, 1.0f, 0.5f}, out[3];
    ASSERT_TRUE(ray_box_entry(dir, eye, out));
    // t = 4 / 2 = 2: y = 2 + 2, z = 3 + 1.
    EXPECT_EQ(out[0], 0.0f);
    EXPECT_EQ(out[1], 4.0f);
    EXPECT_EQ(out[2], 4.0f);
}

TEST(RayBoxEntry, NegativeDirectionStartsInTheLastCell)
{
    start_fresh();
    make_grid(10, 10, 10, [](int, int, int) { return 0u; });
    // From x = 14 along -x: t = ((10 - 14) - 1) / -1 = 5 aims at the plane x = 9 of the last
    // cell, not at the face x = 10.
    float eye[3] = {14.0f, 3.0f, 4.0f}, dir[3] = {-1.0f, 0.25f, 0.0f}, out[3];
    ASSERT_TRUE(ray_box_entry(dir, eye, out));
    EXPECT_EQ(out[0], 9.0f);
    EXPECT_EQ(out[1], 3.0f + 5.0f * 0.25f);
    EXPECT_EQ(out[2], 4.0f);
    GridView g = grid_view(voxels);
    RayWalk w;
    start_walk(w, g, out, out, dir);
    EXPECT_EQ(w.x, 9);  // cell size - 1, not size
    EXPECT_EQ(w.step_x, -1);
    // The fraction to the next plane is p - cell = 0 for x.
    EXPECT_EQ(w.t_x, 0);
}

TEST(RayBoxEntry, NearerCandidateWinsAcrossAxes)
{
    start_fresh();
    make_grid(10, 10, 10, [](int, int, int) { return 0u; });
    // Both x and y faces are candidates; the y face is nearer (t 1 against t 3).
    float eye[3] = {-3.0f, -1.0f, 5.0f}, dir[3] = {1.0f, 1.0f, 0.0f}, out[3];
    ASSERT_TRUE(ray_box_entry(dir, eye, out));
    // x candidate: t = 3, y' = 2: distance sqrt(9 + 9). y candidate: t = 1, x' = -2: outside.
    EXPECT_EQ(out[0], 0.0f);
    EXPECT_EQ(out[1], 2.0f);
    EXPECT_EQ(out[2], 5.0f);
}

TEST(RayStart, ZeroComponentWalksWithTheSmallestStep)
{
    start_fresh();
    make_grid(5, 5, 5, [](int, int, int) { return 0u; });
    GridView g = grid_view(voxels);
    float p[3] = {1.5f, 2.5f, 3.25f}, dir[3] = {1.0f, 0.0f, -0.0f};
    RayWalk w;
    start_walk(w, g, p, p, dir);
    // 0.0 and -0.0 are both taken as positive and raised to 0.0001.
    const float inverse = 1.0f / 0.0001f;
    EXPECT_EQ(w.dt_y, (int32_t)(1.0f * inverse * 4096.0f));
    EXPECT_EQ(w.dt_z, w.dt_y);
    EXPECT_GT(w.dt_y, 40950000);
    EXPECT_LT(w.dt_y, 40970000);
    EXPECT_EQ(w.step_y, 1);
    EXPECT_EQ(w.step_z, 1);
    EXPECT_EQ(w.dir[1], 0.0001f);
    // Fractions from p to the next plane: 0.5 in x and y, 0.75 in z.
    EXPECT_EQ(w.t_x, 2048);
    EXPECT_EQ(w.dt_x, 4096);
    EXPECT_EQ(w.t_z, (int32_t)(0.75f * inverse * 4096.0f));
    EXPECT_EQ(w.index, (int64_t)voxel_index(1, 2, 3));
    EXPECT_EQ(w.entry_face, -1);
    EXPECT_EQ(w.steps, 0u);
}

TEST(RayStart, TinyNegativeComponentIsNotRaised)
{
    start_fresh();
    make_grid(5, 5, 5, [](int, int, int) { return 0u; });
    GridView g = grid_view(voxels);
    float p[3] = {1.5f, 2.5f, 2.5f}, dir[3] = {1.0f, -0.00002f, -1e-9f};
    RayWalk w;
    start_walk(w, g, p, p, dir);
    EXPECT_EQ(w.step_y, -1);
    EXPECT_EQ(w.dir[1], -0.00002f);
    EXPECT_EQ(w.dt_y, (int32_t)(-1.0f * (1.0f / -0.00002f) * 4096.0f));
    // Far beyond the int range: the conversion gives the x86 "integer indefinite".
    EXPECT_EQ(w.dt_z, INT32_MIN);
    EXPECT_EQ(w.stride_y, -1);
}

TEST(Walk, EqualTStepsZThenYThenX)
{
    start_fresh();
    make_grid(9, 9, 9, [](int, int, int) { return 1000u; });  // all solid, nothing hits
    GridView g = grid_view(voxels);
    float p[3] = {0.5f, 0.5f, 0.5f}, dir[3] = {1.0f, 1.0f, 1.0f};
    RayWalk w;
    start_walk(w, g, p, p, dir);
    ASSERT_EQ(w.t_x, 2048);
    ASSERT_EQ(w.t_y, 2048);
    ASSERT_EQ(w.t_z, 2048);
    std::vector<int> cells, faces;
    walk_ray<Form::final_pass, true>(w, g, [&](const RayWalk& w) {
        cells.push_back(w.x * 100 + w.y * 10 + w.z);
        faces.push_back(w.entry_face);
        return cells.size() == 4;
    });
    EXPECT_EQ(cells, (std::vector<int>{0, 1, 11, 111}));
    EXPECT_EQ(faces, (std::vector<int>{-1, 3, 2, 1}));
}

TEST(Walk, StepsCountEmptyBricksAndTheTwoLimitForms)
{
    start_fresh();
    make_line_grid(1000);
    GridView g = grid_view(voxels);
    float p[3] = {0.5f, 1.5f, 1.5f}, dir[3] = {1.0f, 0.0f, 0.0f};
    auto hit_at = [&](const RayWalk& w) { return (voxels[w.index] & 0xfff) != 0; };
    // Cells 1 to 8 (8 moves) and 9 to 16 (8 moves) of the two empty bricks count 16 steps;
    // 16 is visited (count 17 in the preview and the final alike), 17 hits at 18.
    for (uint32_t limit : {17u, 18u, 19u}) {
        g.max_steps = limit;
        RayWalk a, b;
        start_walk(a, g, p, p, dir);
        start_walk(b, g, p, p, dir);
        bool final_hit = walk_ray<Form::final_pass, true>(a, g, hit_at);
        bool preview_hit = walk_ray<Form::preview, true>(b, g, hit_at);
        if (limit == 17) {
            // The final counts first: at cell 17 it has 17 and stops; the preview tests 16.
            EXPECT_FALSE(final_hit);
            EXPECT_TRUE(preview_hit);
            EXPECT_EQ(b.steps, 17u);
        } else {
            EXPECT_TRUE(final_hit);
            EXPECT_TRUE(preview_hit);
            EXPECT_EQ(a.steps, 17u);
            EXPECT_EQ(b.steps, 17u);
            EXPECT_EQ(a.x, 17);
            EXPECT_EQ(a.entry_face, 1);
            EXPECT_EQ(b.cross_t, 16 * 4096 + 2048);
        }
    }
}

TEST(Walk, MaxRayStepsBoundsTheCellsVisited)
{
    start_fresh();
    make_grid(23, 3, 3, [](int, int, int) { return 700u; });  // solid everywhere, no hit
    GridView g = grid_view(voxels);
    g.max_steps = 5;
    float p[3] = {0.5f, 1.5f, 1.5f}, dir[3] = {1.0f, 0.0f, 0.0f};
    int visits = 0;
    auto count = [&](const RayWalk&) { ++visits; return false; };
    RayWalk w;
    start_walk(w, g, p, p, dir);
    EXPECT_FALSE((walk_ray<Form::final_pass, false>(w, g, count)));
    EXPECT_EQ(visits, 5);  // the first cell at 0, then counts 1 to 4
    visits = 0;
    start_walk(w, g, p, p, dir);
    EXPECT_FALSE((walk_ray<Form::preview, false>(w, g, count)));
    EXPECT_EQ(visits, 6);  // tests 0 to 4 before counting
}

TEST(Walk, LeavesTheGridWithoutAHit)
{
    start_fresh();
    make_grid(11, 13, 7, [](int x, int, int) { return x >= 9 ? 800u : 0u; });
    GridView g = grid_view(voxels);
    float p[3] = {0.5f, 6.5f, 3.5f}, dir[3] = {-1.0f, 0.1f, 0.05f};
    RayWalk w;
    start_walk(w, g, p, p, dir);
    int visits = 0;
    EXPECT_FALSE((walk_ray<Form::final_pass, false>(w, g, [&](const RayWalk&) { ++visits; return false; })));
    EXPECT_EQ(visits, 1);  // only the first cell; the first step leaves the grid at x = -1
}

TEST(Walk, EnterGridStepsInFromTheFarFace)
{
    start_fresh();
    make_grid(6, 6, 6, [](int, int, int) { return 900u; });
    GridView g = grid_view(voxels);
    // The eye on the far x face looking back: the first cell (6, 3, 3) is outside.
    float p[3] = {6.0f, 3.5f, 3.5f}, dir[3] = {-1.0f, 0.01f, 0.02f};
    RayWalk w;
    start_walk(w, g, p, p, dir);
    EXPECT_FALSE(cell_inside(w, g));
    ASSERT_TRUE(enter_grid<false>(w, g));
    EXPECT_EQ(w.x, 5);
    EXPECT_EQ(w.entry_face, 1);
    EXPECT_EQ(w.index, (int64_t)voxel_index(5, 3, 3));
    // Looking away from the grid it never gets in.
    float away[3] = {1.0f, 0.01f, 0.02f};
    start_walk(w, g, p, p, away);
    EXPECT_FALSE(enter_grid<false>(w, g));
}

// The fast walk (runs through empty space computed where they end) against the reference on
// random grids of odd sizes with random empty and solid bricks, random rays from inside and
// outside, zero and tiny negative components, shifted starts, small and large step limits.
TEST(Walk, AgreesWithTheStepByStepReference)
{
    start_fresh();
    std::mt19937 rng(12345);
    auto uniform = [&](float a, float b) { return std::uniform_real_distribution<float>(a, b)(rng); };
    auto chance = [&](double p) { return std::bernoulli_distribution(p)(rng); };
    int compared = 0, hits = 0;
    for (int grid = 0; grid < 40; ++grid) {
        const uint32_t X = 5 + rng() % 37, Y = 5 + rng() % 37, Z = 5 + rng() % 37;
        const double solid_bricks = grid % 4 == 0 ? 0.02 : grid % 4 == 1 ? 0.15 : 0.4;
        std::vector<uint8_t> solid((X / 8 + 1) * (Y / 8 + 1) * (Z / 8 + 1));
        for (auto& s : solid) s = chance(solid_bricks);
        make_grid(X, Y, Z, [&](int x, int y, int z) -> uint32_t {
            size_t b = ((size_t)(x / 8) * (Z / 8 + 1) + z / 8) * (Y / 8 + 1) + y / 8;
            if (!solid[b]) return 0u;
            return chance(0.03) ? 4000u : chance(0.5) ? 600u : 0u;
        });
        GridView g = grid_view(voxels);
        for (int ray = 0; ray < 800; ++ray) {
            float eye[3], dir[3], p[3], cell_point[3];
            bool inside = chance(0.5);
            // Every other ray has components of a few powers of two and an eye on a quarter
            // grid: its t values are exact multiples of each other, full of ties.
            const bool ties = ray & 2;
            static const float nice[] = {1.0f, -1.0f, 0.5f, -0.5f, 0.25f, -0.25f, 2.0f, -2.0f};
            for (int a = 0; a < 3; ++a) {
                float size = (float)(a == 0 ? X : a == 1 ? Y : Z);
                eye[a] = inside ? uniform(0.0f, size) : uniform(-2.0f * size, 3.0f * size);
                dir[a] = uniform(-1.0f, 1.0f);
                if (ties) {
                    eye[a] = std::floor(eye[a] * 4.0f) * 0.25f;
                    dir[a] = nice[rng() % 8];
                } else if (chance(0.08)) {
                    dir[a] = 0.0f;
                } else if (chance(0.04)) {
                    dir[a] = -1e-9f;
                } else if (chance(0.04)) {
                    dir[a] = 0.00005f;
                }
            }
            if (inside) {
                for (int a = 0; a < 3; ++a) p[a] = eye[a];
            } else if (!ray_box_entry(dir, eye, p)) {
                continue;
            }
            // A refining ray starts its cells further along, its t still measured from p.
            float shift = chance(0.3) ? uniform(0.0f, 20.0f) : 0.0f;
            for (int a = 0; a < 3; ++a) cell_point[a] = p[a] + dir[a] * shift;
            g.max_steps = chance(0.3) ? 1 + rng() % 60 : 1000;
            RayWalk fast, slow;
            start_walk(fast, g, p, cell_point, dir);
            if (!cell_inside(fast, g)) continue;
            std::vector<Visit> fast_visits, slow_visits;
            auto record = [](std::vector<Visit>& v) {
                return [&v](const RayWalk& w) {
                    v.push_back({w.index, w.cross_t, w.entry_face, w.steps});
                    return (voxels[w.index] & 0xfff) >= 4000;
                };
            };
            bool fast_hit, slow_hit;
            if (ray & 1) {
                slow = fast;
                fast_hit = walk_ray<Form::preview, true>(fast, g, record(fast_visits));
                slow_hit = reference_walk<Form::preview>(slow, g, record(slow_visits));
            } else {
                fast.prev_cross_t = slow.prev_cross_t = (int32_t)(rng() % 100000);
                slow = fast;
                RayWalk kept = fast;
                fast_hit = walk_ray<Form::final_pass, true>(fast, g, record(fast_visits));
                slow_hit = reference_walk<Form::final_pass>(slow, g, record(slow_visits));
                // The walk that keeps prev_cross_t agrees with the reference at every visit and
                // where it ends, also when it leaves the grid through empty space.
                std::vector<int32_t> kept_prev, slow_prev;
                RayWalk again = kept;
                auto note = [](std::vector<int32_t>& v) {
                    return [&v](const RayWalk& w) {
                        v.push_back(w.prev_cross_t);
                        return (voxels[w.index] & 0xfff) >= 4000;
                    };
                };
                ASSERT_EQ((walk_ray<Form::final_pass, true, true>(kept, g, note(kept_prev))),
                          reference_walk<Form::final_pass>(again, g, note(slow_prev)));
                ASSERT_TRUE(kept_prev == slow_prev) << "grid " << grid << " ray " << ray;
                expect_same_state(kept, again, "end of the walk keeping prev_cross_t");
                EXPECT_EQ(kept.prev_cross_t, again.prev_cross_t) << "grid " << grid << " ray " << ray;
            }
            ASSERT_EQ(fast_hit, slow_hit) << "grid " << grid << " ray " << ray;
            ASSERT_TRUE(fast_visits == slow_visits) << "grid " << grid << " ray " << ray;
            // A ray that hit, or that ran out of steps inside the grid, stands where the
            // reference stands; one that left the grid may have stopped further back.
            if (slow_hit || cell_inside(slow, g)) expect_same_state(fast, slow, "end of the walk");
            ++compared;
            hits += slow_hit;
        }
    }
    EXPECT_GT(compared, 12000);
    EXPECT_GT(hits, 1000);
}

// Stepping back undoes the walk exactly, cell by cell, on every ray that walk_is_reversible
// accepts: coordinates, t values, index, and the entry face and crossing of each earlier cell.
// Rays full of ties (components of powers of two) check the order among equal t.
TEST(Walk, StepBackRetracesEveryCell)
{
    start_fresh();
    std::mt19937 rng(777);
    auto uniform = [&](float a, float b) { return std::uniform_real_distribution<float>(a, b)(rng); };
    int retraced = 0, refused = 0;
    for (int grid = 0; grid < 12; ++grid) {
        const uint32_t X = 5 + rng() % 37, Y = 5 + rng() % 37, Z = 5 + rng() % 37;
        make_grid(X, Y, Z, [](int, int, int) { return 600u; });
        GridView g = grid_view(voxels);
        for (int ray = 0; ray < 400; ++ray) {
            float eye[3], dir[3], p[3];
            const bool inside = ray & 1, ties = ray & 2;
            static const float nice[] = {1.0f, -1.0f, 0.5f, -0.5f, 0.25f, -0.25f, 2.0f, -2.0f};
            for (int a = 0; a < 3; ++a) {
                float size = (float)(a == 0 ? X : a == 1 ? Y : Z);
                eye[a] = inside ? uniform(0.0f, size) : uniform(-2.0f * size, 3.0f * size);
                dir[a] = ties ? nice[rng() % 8] : uniform(-1.0f, 1.0f);
                if (ties) eye[a] = std::floor(eye[a] * 4.0f) * 0.25f;
                if (ray % 7 == 0 && a == 1) dir[a] = ray % 14 ? 0.0f : -1e-9f;
            }
            if (inside) {
                for (int a = 0; a < 3; ++a) p[a] = eye[a];
            } else if (!ray_box_entry(dir, eye, p)) {
                continue;
            }
            RayWalk w;
            start_walk(w, g, p, p, dir);
            if (!cell_inside(w, g)) continue;
            if (!walk_is_reversible(w, g)) {
                refused += 1;
                continue;
            }
            std::vector<RayWalk> cells = {w};
            bool crossed;
            while (guarded_step<true>(w, g, crossed)) cells.push_back(w);
            // w has its last coordinate moved outside only: start from the last cell inside.
            RayWalk back = cells.back();
            const int32_t first[3] = {cells[0].x, cells[0].y, cells[0].z};
            for (size_t k = cells.size() - 1; k > 0; --k) {
                step_back(back, first);
                const RayWalk& want = cells[k - 1];
                ASSERT_EQ(back.x, want.x) << "grid " << grid << " ray " << ray << " cell " << k - 1;
                ASSERT_EQ(back.y, want.y);
                ASSERT_EQ(back.z, want.z);
                ASSERT_EQ(back.t_x, want.t_x);
                ASSERT_EQ(back.t_y, want.t_y);
                ASSERT_EQ(back.t_z, want.t_z);
                ASSERT_EQ(back.index, want.index);
                ASSERT_EQ(back.entry_face, want.entry_face) << "grid " << grid << " ray " << ray << " cell " << k - 1;
                // The first cell's crossing is the pass's own start value, not a crossing.
                if (k - 1 > 0) {
                    ASSERT_EQ(back.cross_t, want.cross_t);
                }
                retraced += 1;
            }
        }
    }
    EXPECT_GT(retraced, 20000);
    // Rays with a component of 0 walk with dt of about 40,960,000: some of them may wrap.
    EXPECT_GT(refused, 0);
}
