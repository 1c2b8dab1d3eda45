// settings.cpp — definitions, start values and name registry of the render settings table.
// Owns every global of settings.h. Written by main, the panel handlers, input and the slices;
// read by all.
#include "core/settings.h"

#include <string_view>

#define TAVOK_DEFINE_S(kind, name, start, who) TAVOK_CTYPE_##kind name = start;
#define TAVOK_DEFINE_A(kind, name, start, who) TAVOK_CTYPE_##kind name[4] = {start, start, start, start};
#define TAVOK_DEFINE_V(name, x, y, z, who) float name[3] = {x, y, z};
TAVOK_SETTINGS(TAVOK_DEFINE_S, TAVOK_DEFINE_A, TAVOK_DEFINE_V)
#undef TAVOK_DEFINE_S
#undef TAVOK_DEFINE_A
#undef TAVOK_DEFINE_V

std::atomic<int> refresh{1};
std::atomic<int> shadow_cancel{0};
std::atomic<int> shadow_running{0};

// One assignment function per value of the who column: each assigns the start values of its
// own rows, in the order of the table.
#define TAVOK_ASSIGN(owner)                                                                      \
    do {                                                                                         \
        constexpr std::string_view assigner = #owner;                                            \
        (void)assigner;                                                                          \
        TAVOK_SETTINGS(TAVOK_ASSIGN_S, TAVOK_ASSIGN_A, TAVOK_ASSIGN_V)                           \
    } while (0)
#define TAVOK_ASSIGN_S(kind, name, start, who)                                                   \
    if constexpr (std::string_view(#who) == assigner) name = start;
#define TAVOK_ASSIGN_A(kind, name, start, who)                                                   \
    if constexpr (std::string_view(#who) == assigner)                                            \
        for (auto& element : name) element = start;
#define TAVOK_ASSIGN_V(name, x, y, z, who)                                                       \
    if constexpr (std::string_view(#who) == assigner) name[0] = x, name[1] = y, name[2] = z;

void set_default_settings()
{
    refresh = 1;
    TAVOK_ASSIGN(main);
    shadow_cancel = 0;
    shadow_running = 0;
}

void set_panel_defaults() { TAVOK_ASSIGN(panel); }
void set_cut_settings() { TAVOK_ASSIGN(cut); }
void set_slice_settings() { TAVOK_ASSIGN(slice); }

#undef TAVOK_ASSIGN
#undef TAVOK_ASSIGN_S
#undef TAVOK_ASSIGN_A
#undef TAVOK_ASSIGN_V

#define TAVOK_REG_S(kind, name, start, who) {#name, SettingType::kind, (void*)&name, 1},
#define TAVOK_REG_A(kind, name, start, who) {#name, SettingType::kind, (void*)name, 4},
#define TAVOK_REG_V(name, x, y, z, who) {#name, SettingType::Float, (void*)name, 3},
const SettingInfo settings_registry[] = {
    TAVOK_SETTINGS(TAVOK_REG_S, TAVOK_REG_A, TAVOK_REG_V)
};
#undef TAVOK_REG_S
#undef TAVOK_REG_A
#undef TAVOK_REG_V
const int settings_registry_size = sizeof settings_registry / sizeof settings_registry[0];
