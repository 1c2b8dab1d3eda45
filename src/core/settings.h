// settings.h — the render settings, one table for the whole program.
//
// Each row names a setting once: its type, its start value and what it means. The table
// generates the declarations (here), the definitions and the start values in the order that
// set_default_settings() assigns them (settings.cpp), and the name registry that
// tavok-render's --set reads (settings_registry). Add a setting here and nowhere else.
//
// Writers: the panel handlers (src/panel), input (src/core/input*), the load path, and the
// long operations they start. Readers: every render pass, at the next pass; no pass latches
// a setting.
#pragma once
#include <atomic>
#include <cstdint>

// S(type, name, start value)          scalar
// A(type, name, start value)          array of four, every element the same start value
// V(name, x, y, z)                    vector of three floats
// Rows are in the order in which main assigns them; rows marked "panel" are assigned by
// set_panel_defaults() (called from init_control_panel), slice rows by reset_slices().
#define TAVOK_SETTINGS(S, A, V)                                                                  \
    S(int, render_mode, 12)               /* 0 cuberille, 2 firsthit, 4 mip, 6 avg, 8 rbs,    */  \
                                          /* 10 ics, 12 slices                                 */  \
    S(int, view_kind, 0)                  /* 10 abstract view, 20 normal; 0 acts as normal     */  \
    S(uint8_t, interp_mode, 0)            /* 0 none, 1 bilinear, 2 trilinear                   */  \
    S(float, shadow_stepsize, 0.7f)       /* step of the occlusion rays                        */  \
    S(unsigned, max_ray_steps, 1000)      /* ray length limit in grid steps                    */  \
    S(float, sample_stepsize, 0.7f)       /* sample distance of the trilinear finals           */  \
    S(int, light_model, 0)                /* 0 none, 1 simple, 2 occlusion data only           */  \
    S(float, ics_thickness, 1.0f)         /* contour thickness of mode 10                      */  \
    S(int, preview_limit_cuberille, 2)    /* lattice size where refinement of mode 0 stops     */  \
    S(float, rbs_grad_dep, 1.0f)          /* gradient factor, inverse of the slider value      */  \
    S(int, preview_limit_simple, 4)       /* the same for modes 2, 4, 6                        */  \
    S(int, preview_limit_surface, 8)      /* the same for modes 8, 10                          */  \
    S(int, edge_enabled, 0)               /* edge detection on                                 */  \
    S(uint32_t, edge_color, 0xccccccu)    /* colour of edges, 0x00RRGGBB                       */  \
    S(float, edge_strength, 4.0f)         /* multiplier of normalised depth in edge detection  */  \
    S(int, toon_shading, 0)               /* toon shading on                                   */  \
    S(int, shadow_kind, 2)                /* 1 soft shadows, 2 hard shadows                    */  \
    S(float, light_diffuse, 0.35f)        /* diffuse coefficient                               */  \
    S(float, light_specular, 0.55f)       /* specular coefficient                              */  \
    S(float, light_exponent, 16.0f)       /* specular exponent                                 */  \
    S(float, light_ambient, 0.0f)         /* ambient; 0 until its slider first moves           */  \
    S(int, use_occlusion, 0)              /* multiply lighting by occlusion data               */  \
    S(int, offscreen_render, 0)           /* renderers write to offscreen_pixels               */  \
    S(int, faint_whisps, 0)               /* "Faint Whisps" compositing                        */  \
    S(int, pre_shading, 0)                /* 1 pre-shading, 0 post-shading                     */  \
    S(int, ics_dissolve, 0)               /* modified classification of mode 10                */  \
    S(int, rbs_dissolve, 0)               /* modified classification of mode 8                 */  \
    S(int, rbs_alpha_correction, 1)       /* alpha correction of mode 8                        */  \
    S(int, ics_alpha_correction, 1)       /* alpha correction of mode 10                       */  \
    S(uint8_t, pencil_sketch, 0)          /* pencil sketch shading                             */  \
    S(int, tex_scroll_y, 0)               /* pencil texture scroll, follows the mouse          */  \
    S(int, tex_scroll_x, 0)                                                                      \
    S(int, load_requested, 0)             /* the file chooser asked for a load                 */  \
    A(int, surface_on, 0)                 /* the four extra isosurfaces are on                 */  \
    A(uint32_t, surface_hit_color, 0)     /* per-ray scratch of the firsthit pass              */  \
    A(int, surface_hit, 0)                /* per-ray scratch of the firsthit pass              */  \
    A(int, surface_isovalue, 0)           /* the sliders show 1 until they move                */  \
    A(uint32_t, surface_tint, 0x11aa11u)  /* colour of the surface in the editor strip         */  \
    A(float, surface_thickness, 1.0f)     /* contour thickness of the surface in mode 10       */  \
    S(unsigned, window_width, 512)        /* size of the SDL window                            */  \
    S(unsigned, window_height, 512)                                                              \
    S(int, cut_kind, 1)                   /* 1 plane, 2 sphere                                 */  \
    S(uint32_t, abstract_plane_color, 0xccu)                                                     \
    S(int, cut_sphere_side, 3)            /* 3 cut away inside, 4 outside                      */  \
    V(cut_plane_n, 0.70710677f, 0.0f, -0.70710677f) /* light_dir normalised                    */  \
    S(float, cut_plane_d, 0.0f)           /* plane offset; from the slider at each load        */  \
    V(cut_sphere_center, 0.0f, 0.0f, 0.0f)                                                       \
    S(float, cut_sphere_r2, 1600.0f)      /* squared sphere radius                             */  \
    S(uint32_t, abstract_sphere_color, 0xcc0000u)                                                \
    S(uint32_t, abstract_box_color, 0xcc00u)                                                     \
    S(uint32_t, light_color, 0xffffffu)   /* panel                                             */  \
    V(light_dir, 0.70710677f, 0.0f, -0.70710677f) /* panel; unit vector                        */  \
    S(int, isovalue, 2048)                /* panel; main isovalue                              */  \
    S(uint8_t, refine_tolerance, 10)      /* colour tolerance of the preview refinement        */

// The values of render_mode, by name. The program's pass table (src/app/passes.h) has a row for
// each of them.
enum RenderModeValue : int {
    mode_cuberille = 0,  // cuberille first hit
    mode_firsthit = 2,   // interpolated first hit
    mode_mip = 4,        // maximum intensity projection
    mode_avg = 6,        // average value projection
    mode_rbs = 8,        // region boundary surfaces
    mode_ics = 10,       // isovalue contour surfaces
    mode_slices = 12,    // the slice view
};
// The values of interp_mode.
enum InterpModeValue : uint8_t { interp_none = 0, interp_bilinear = 1, interp_trilinear = 2 };

#define TAVOK_DECLARE_S(type, name, start) extern type name;
#define TAVOK_DECLARE_A(type, name, start) extern type name[4];
#define TAVOK_DECLARE_V(name, x, y, z) extern float name[3];
TAVOK_SETTINGS(TAVOK_DECLARE_S, TAVOK_DECLARE_A, TAVOK_DECLARE_V)
#undef TAVOK_DECLARE_S
#undef TAVOK_DECLARE_A
#undef TAVOK_DECLARE_V

// Three flags are also written by the occlusion worker thread, so they are atomics; they keep
// their start values in set_default_settings() like the rest.
extern std::atomic<int> refresh;         // 1 at start: something changed, a preview is due
extern std::atomic<int> shadow_cancel;   // stop request to the occlusion worker
extern std::atomic<int> shadow_running;  // the occlusion worker runs

// Assigns every start value of the table in its order: step 1 of start-up, and what a test
// calls to begin from a known state. The panel rows are left to set_panel_defaults().
void set_default_settings();
// The values that the control panel gives at its start: light colour, light vector, isovalue.
void set_panel_defaults();

// The name registry of the table, for tavok-render --set.
enum class SettingType { Int, UInt, Byte, Float, Color };
struct SettingInfo {
    const char* name;
    SettingType type;
    void* value;    // first element
    int count;      // 1 for a scalar, 3 for a vector, 4 for an array
};
extern const SettingInfo settings_registry[];
extern const int settings_registry_size;
