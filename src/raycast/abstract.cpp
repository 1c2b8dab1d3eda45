// abstract.cpp — the abstract view (view_kind 10): the volume's box and the cutting shape of
// cut_kind (a plane drawn as a disc, or a sphere), intersected by each ray in closed form and
// lit, on every second pixel of every second line, each copied to its three neighbours. No
// voxel is read: it runs at interactive speed on any volume while the user places a cut.
//
// Called by the frame loop's preview path instead of the mode's preview while view_kind is 10,
// and by tavok-render --abstract. Reads the camera, the target, the view constants, the light
// settings, half_vector, the cut settings, vol_x/y/z and vol_diag_sq; writes box_eye_inside and
// the target's color only, then shows the image.
#include <cmath>

#include "core/core.h"
#include "raycast/raycast.h"
#include "raycast/shade.h"
#include "raycast/walk.h"
#include "volume/volume.h"

bool box_eye_inside = false;

// Distances and ray parameters from here on are in voxels; this one stands for infinity.
constexpr float far_away = 4194304.0f;

// The box's faces in the order they are tested: the axis, the low (0) or high (size) plane,
// the face's number and its normal, which faces into the box.
namespace {
struct BoxFace {
    int axis;
    bool high;
    int number;
    float normal[3];
};
}  // namespace
static constexpr BoxFace box_faces[6] = {
    {0, false, 1, {1.0f, 0.0f, 0.0f}},  {0, true, 2, {-1.0f, 0.0f, 0.0f}},
    {1, false, 4, {0.0f, 1.0f, 0.0f}},  {1, true, 3, {0.0f, -1.0f, 0.0f}},
    {2, false, 5, {0.0f, 0.0f, 1.0f}},  {2, true, 6, {0.0f, 0.0f, -1.0f}},
};

int ray_box_face(const float* direction, const float* eye, float* out_normal, float* out_distance)
{
    *out_distance = far_away;
    const float size[3] = {(float)vol_x, (float)vol_y, (float)vol_z};
    int found = 0;
    for (const BoxFace& f : box_faces) {
        const int a = f.axis, b = a == 0 ? 1 : 0, c = a == 2 ? 1 : 2;
        // From outside a ray meets the faces it enters by, from inside those it leaves by.
        bool tested;
        if (!box_eye_inside)
            tested = f.high ? eye[a] >= size[a] && direction[a] < 0.0f : eye[a] < 0.0f && direction[a] >= 0.0f;
        else
            tested = f.high ? eye[a] < size[a] && direction[a] >= 0.0f : eye[a] >= 0.0f && direction[a] < 0.0f;
        if (!tested) continue;
        const float plane = f.high ? size[a] : 0.0f;
        const float t = (plane - eye[a]) / direction[a];
        const float pb = t * direction[b] + eye[b];
        const float pc = t * direction[c] + eye[c];
        // NaN from a zero component fails these tests too.
        if (!(0.0f <= pb && pb <= size[b] && 0.0f <= pc && pc <= size[c])) continue;
        const float da = eye[a] - plane, db = eye[b] - pb, dc = eye[c] - pc;
        // A true distance, not a multiple of the direction: comparable with the shapes' t.
        const float distance = sqrtf(da * da + db * db + dc * dc);
        if (distance < *out_distance) {
            *out_distance = distance;
            for (int i = 0; i < 3; ++i) out_normal[i] = f.normal[i];
            found = f.number;
        }
    }
    return found;
}

int ray_plane(const float* direction, const float* eye, float* out_normal, float* out_distance)
{
    *out_distance = far_away;
    const float* n = cut_plane_n;
    const float d = cut_plane_d;
    float u[3] = {direction[0], direction[1], direction[2]};
    normalize3(u);
    const float k = n[0] * u[0] + n[1] * u[1] + n[2] * u[2];
    if (k == 0.0f) return 0;  // parallel to the plane
    const float t = -(n[0] * eye[0] + n[1] * eye[1] + n[2] * eye[2] + d) / k;
    if (!(t > 0.0f)) return 0;
    // The plane is drawn as a disc of the volume's diagonal around -n * d, its point nearest
    // to the grid's origin: the hit point is moved by n * d and measured from the origin.
    float m2 = 0.0f;
    for (int i = 0; i < 3; ++i) {
        const float m = eye[i] + u[i] * t + n[i] * d;
        m2 += m * m;
    }
    if (!(t < far_away && m2 < vol_diag_sq)) return 0;
    for (int i = 0; i < 3; ++i) out_normal[i] = n[i];
    *out_distance = t;
    return 1;
}

int ray_sphere(const float* direction, const float* eye, float* out_normal, float* out_distance)
{
    *out_distance = far_away;
    const float* c = cut_sphere_center;
    float u[3] = {direction[0], direction[1], direction[2]};
    normalize3(u);
    const float o[3] = {eye[0] - c[0], eye[1] - c[1], eye[2] - c[2]};
    const float b = -(u[0] * o[0] + u[1] * o[1] + u[2] * o[2]);
    const float D = b * b - (o[0] * o[0] + o[1] * o[1] + o[2] * o[2]) + cut_sphere_r2;
    if (!(D > 0.0f)) return 0;
    const float s = sqrtf(D);
    if (!(b + s > 0.0f)) return 0;  // the sphere lies behind the eye
    const float near = b - s;
    int result;
    float t;
    if (near < 0.0f) {  // the eye is inside: the ray leaves through the far wall
        result = -1;
        t = b + s;
    } else {
        result = 1;
        t = near;
    }
    if (!(t < far_away)) return 0;
    // From the centre to the hit point: negated for a hit from outside, so that the normal
    // faces the centre then and away from it from inside, as the box's face inward.
    float v[3];
    for (int i = 0; i < 3; ++i) {
        v[i] = eye[i] + u[i] * t - c[i];
        if (result == 1) v[i] = -v[i];
    }
    normalize3(v);
    for (int i = 0; i < 3; ++i) out_normal[i] = v[i];
    *out_distance = t;
    return result;
}

// The lit colour of a face: the rational intensity (no power, no occlusion) with the frame's
// half vector, and the plain colour rule.
TAVOK_INLINE uint32_t shade_abstract(const Lighting& light, const float* half, uint32_t base,
                                     const float* normal)
{
    return shade_plain(shade_intensity_rational(light, normal, half), base, light.color);
}

// The image for one kind of shape (0 none, 1 the plane, 2 the sphere), chosen once per view.
template <int Shape>
static void abstract_image(const RayFrame& f, RenderTarget* target, const Lighting& light, const float* half)
{
    const uint32_t w = target->width, h = target->height;
    uint32_t* const color = target->color;
    const uint32_t box_color = abstract_box_color;
    const uint32_t shape_color = Shape == 1 ? abstract_plane_color : abstract_sphere_color;

    float line[3] = {f.first[0], f.first[1], f.first[2]};
    for (uint32_t y = 0; y < h; y += 2) {
        float dir[3] = {line[0], line[1], line[2]};
        uint32_t* row = color + (size_t)y * w;
        for (uint32_t x = 0; x < w; x += 2) {
            float box_normal[3], box_t, shape_normal[3], shape_t;
            const int r = ray_box_face(dir, f.eye, box_normal, &box_t);
            if (r) row[x] = shade_abstract(light, half, box_color, box_normal);
            int q = 0;
            if constexpr (Shape == 1) q = ray_plane(dir, f.eye, shape_normal, &shape_t);
            if constexpr (Shape == 2) q = ray_sphere(dir, f.eye, shape_normal, &shape_t);
            // The shape hides the box only where it is strictly nearer.
            if (q && (!r || shape_t < box_t)) row[x] = shade_abstract(light, half, shape_color, shape_normal);
            // Whatever stands at (x, y), hit or not, fills the pixels right of and below it.
            const uint32_t c = row[x];
            const bool right = x + 1 < w, down = y + 1 < h;
            if (right) row[x + 1] = c;
            if (down) row[x + w] = c;
            if (right && down) row[x + w + 1] = c;
            for (int i = 0; i < 3; ++i) dir[i] += f.pixel_inc[i];
            for (int i = 0; i < 3; ++i) dir[i] += f.pixel_inc[i];
        }
        for (int i = 0; i < 3; ++i) line[i] += f.line_inc[i];
        for (int i = 0; i < 3; ++i) line[i] += f.line_inc[i];
    }
}

void render_abstract_view(RenderTarget* target, uint32_t*, float* ipos, float* ifor, float* iup,
                          float* istr)
{
    RayFrame f;
    setup_ray_frame(f, target, ipos, ifor, iup, istr);
    box_eye_inside = f.eye_inside;
    const Lighting light = current_lighting();
    const float half[3] = {half_vector[0], half_vector[1], half_vector[2]};
    switch (cut_kind) {
    case 1: abstract_image<1>(f, target, light, half); break;
    case 2: abstract_image<2>(f, target, light, half); break;
    default: abstract_image<0>(f, target, light, half); break;
    }
    show_image(target);
}
