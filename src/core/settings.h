// settings.h — the render settings, one table for the whole program.
//
// Each row names a setting once: its kind, its start value, who assigns that value and what it
// means. The table generates the declarations (here), the definitions, the assignments of the
// start values by main, the panel, the cut and the slices (settings.cpp), and the name
// registry that tavok-render's --set reads (settings_registry). Add a setting here and nowhere
// else. What is not a setting — per-ray scratch, flags of the program's state, the window's
// size — is not in the table.
//
// Writers: the panel handlers (src/panel), input (src/app/controls.cpp), the load path, the
// slices, and the long operations they start. Readers: every render pass, at the next pass;
// no pass latches a setting.
#pragma once
#include <atomic>
#include <cstdint>

// One row a setting:
//   S(kind, name, start, who)   a scalar
//   A(kind, name, start, who)   an array of four, every element the same start value
//   V(name, x, y, z, who)       a vector of three floats
// kind: Int, UInt, Byte (uint8_t), Float, Color (a packed 0x00RRGGBB word).
// who assigns the start value: main (step 1 of start-up, in the order of the rows), panel
// (init_control_panel), cut (step 5 of start-up, with the cutting tab's entries), slice
// (reset_slices, at start-up and after every load; it also puts the slice indexes at the
// middle of the grid).
#define TAVOK_SETTINGS(S, A, V)                                                                  \
    S(Int, render_mode, 12, main)              /* a RenderModeValue                        */  \
    S(Int, view_kind, 0, main)                 /* 10 abstract view, 20 normal; 0 = normal  */  \
    S(Byte, interp_mode, 0, main)              /* an InterpModeValue                       */  \
    S(Float, shadow_stepsize, 0.7f, main)      /* step of the occlusion rays               */  \
    S(UInt, max_ray_steps, 1000, main)         /* ray length limit in grid steps           */  \
    S(Float, sample_stepsize, 0.7f, main)      /* sample distance of the trilinear finals  */  \
    S(Int, light_model, 0, main)               /* 0 none, 1 simple, 2 occlusion data only  */  \
    S(Float, ics_thickness, 1.0f, main)        /* contour thickness of mode 10             */  \
    S(Int, preview_limit_cuberille, 2, main)   /* lattice where refinement of 0 stops      */  \
    S(Float, rbs_grad_dep, 1.0f, main)         /* gradient factor, 1 / the slider value    */  \
    S(Int, preview_limit_simple, 4, main)      /* the same for modes 2, 4, 6               */  \
    S(Int, preview_limit_surface, 8, main)     /* the same for modes 8, 10                 */  \
    S(Int, edge_enabled, 0, main)              /* edge detection on                        */  \
    S(Color, edge_color, 0xccccccu, main)      /* colour of edges                          */  \
    S(Float, edge_strength, 4.0f, main)        /* multiplier of normalised depth           */  \
    S(Int, toon_shading, 0, main)              /* toon shading on                          */  \
    S(Int, shadow_kind, 2, main)               /* 1 soft shadows, 2 hard shadows           */  \
    S(Float, light_diffuse, 0.35f, main)       /* diffuse coefficient                      */  \
    S(Float, light_specular, 0.55f, main)      /* specular coefficient                     */  \
    S(Float, light_exponent, 16.0f, main)      /* specular exponent                        */  \
    S(Float, light_ambient, 0.0f, main)        /* 0 until its slider first moves           */  \
    S(Int, use_occlusion, 0, main)             /* weight the lighting by occlusion         */  \
    S(Int, faint_whisps, 0, main)              /* "Faint Whisps" compositing               */  \
    S(Int, pre_shading, 0, main)               /* 1 pre-shading, 0 post-shading            */  \
    S(Int, ics_dissolve, 0, main)              /* modified classification of mode 10       */  \
    S(Int, rbs_dissolve, 0, main)              /* modified classification of mode 8        */  \
    S(Int, rbs_alpha_correction, 1, main)      /* alpha correction of mode 8               */  \
    S(Int, ics_alpha_correction, 1, main)      /* alpha correction of mode 10              */  \
    S(Byte, pencil_sketch, 0, main)            /* pencil sketch shading                    */  \
    A(Int, surface_on, 0, main)                /* the four extra isosurfaces are on        */  \
    A(Int, surface_isovalue, 0, main)          /* the sliders show 1 until they move       */  \
    A(Color, surface_tint, 0x11aa11u, main)    /* their colour in the editor strip         */  \
    A(Float, surface_thickness, 1.0f, main)    /* their contour thickness in mode 10       */  \
    S(Int, cut_kind, 1, cut)                   /* 1 plane, 2 sphere                        */  \
    S(Color, abstract_plane_color, 0xccu, cut)                                                   \
    S(Int, cut_sphere_side, 3, cut)            /* 3 cut away inside, 4 outside             */  \
    V(cut_plane_n, 0.70710677f, 0.0f, -0.70710677f, cut) /* light_dir normalised           */  \
    S(Float, cut_plane_d, 0.0f, cut)           /* plane offset; from the slider at a load  */  \
    V(cut_sphere_center, 0.0f, 0.0f, 0.0f, cut)                                                  \
    S(Float, cut_sphere_r2, 1600.0f, cut)      /* squared sphere radius                    */  \
    S(Color, abstract_sphere_color, 0xcc0000u, cut)                                              \
    S(Color, abstract_box_color, 0xcc00u, cut)                                                   \
    S(Color, light_color, 0xffffffu, panel)    /* light colour                             */  \
    V(light_dir, 0.70710677f, 0.0f, -0.70710677f, panel) /* unit vector                    */  \
    S(Int, isovalue, 2048, panel)              /* main isovalue                            */  \
    S(Byte, refine_tolerance, 10, main)        /* colour tolerance of preview refinement   */  \
    S(Int, slice_kind, 0, slice)               /* 0 XY, 1 XZ, 2 YZ, 3 arbitrary plane      */  \
    S(UInt, slice_x, 0, slice)                 /* x of the YZ slice                        */  \
    S(UInt, slice_y, 0, slice)                 /* y of the XZ slice                        */  \
    S(UInt, slice_z, 0, slice)                 /* z of the XY slice                        */  \
    S(Float, slice_zoom, 256.0f, slice)        /* voxels across the short side, 3 .. 1024  */  \
    S(Float, slice_d, 0.0f, slice)             /* d of nx*x + ny*y + nz*z + d = 0          */  \
    S(Int, slice_recenter, 1, slice)           /* the slice stays centred in the window    */  \
    S(Int, slice_filter, 1, slice)             /* 1 bilinear, else nearest (axis slices)   */  \
    V(slice_normal, 1.0f, 0.0f, 0.0f, slice)   /* nx, ny, nz of the arbitrary plane        */  \
    S(Int, slice_use_tf, 0, main)              /* slices coloured by the transfer function */

#define TAVOK_CTYPE_Int int
#define TAVOK_CTYPE_UInt uint32_t
#define TAVOK_CTYPE_Byte uint8_t
#define TAVOK_CTYPE_Float float
#define TAVOK_CTYPE_Color uint32_t

#define TAVOK_DECLARE_S(kind, name, start, who) extern TAVOK_CTYPE_##kind name;
#define TAVOK_DECLARE_A(kind, name, start, who) extern TAVOK_CTYPE_##kind name[4];
#define TAVOK_DECLARE_V(name, x, y, z, who) extern float name[3];
TAVOK_SETTINGS(TAVOK_DECLARE_S, TAVOK_DECLARE_A, TAVOK_DECLARE_V)
#undef TAVOK_DECLARE_S
#undef TAVOK_DECLARE_A
#undef TAVOK_DECLARE_V

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
// The values of view_kind (its start value 0 acts as view_normal).
enum ViewKindValue : int { view_abstract = 10, view_normal = 20 };
// The values of interp_mode.
enum InterpModeValue : uint8_t { interp_none = 0, interp_bilinear = 1, interp_trilinear = 2 };

// Three flags are also written by the occlusion worker thread, so they are atomics; they keep
// their start values in set_default_settings() like the rest.
extern std::atomic<int> refresh;         // 1 at start: something changed, a preview is due
extern std::atomic<int> shadow_cancel;   // stop request to the occlusion worker
extern std::atomic<int> shadow_running;  // the occlusion worker runs

// The start values of the rows that main assigns, in the order of the table: step 1 of
// start-up, and what a test calls to begin from a known state. (refresh, shadow_cancel and
// shadow_running go back to their start values too.)
void set_default_settings();
// The start values of the panel's rows (init_control_panel: light colour, light vector,
// isovalue).
void set_panel_defaults();
// The start values of the cut's rows (step 5 of start-up). The cutting tab's entries that show
// the plane normal are set by set_cut_defaults() of core.h, which calls this.
void set_cut_settings();
// The start values of the slice rows (reset_slices, before it centres the indexes).
void set_slice_settings();

// The name registry of the table, for tavok-render --set.
enum class SettingType { Int, UInt, Byte, Float, Color };  // the kinds of the table
struct SettingInfo {
    const char* name;
    SettingType type;
    void* value;    // first element
    int count;      // 1 for a scalar, 3 for a vector, 4 for an array
};
extern const SettingInfo settings_registry[];
extern const int settings_registry_size;
