// settings.cpp — definitions, start values and name registry of the render settings table.
// Owns every global of settings.h. Written by main, the panel handlers and input; read by all.
#include "core/settings.h"

#include <string_view>
#include <type_traits>

#define TAVOK_DEFINE_S(type, name, start) type name = start;
#define TAVOK_DEFINE_A(type, name, start) type name[4] = {start, start, start, start};
#define TAVOK_DEFINE_V(name, x, y, z) float name[3] = {x, y, z};
TAVOK_SETTINGS(TAVOK_DEFINE_S, TAVOK_DEFINE_A, TAVOK_DEFINE_V)
#undef TAVOK_DEFINE_S
#undef TAVOK_DEFINE_A
#undef TAVOK_DEFINE_V

std::atomic<int> refresh{1};
std::atomic<int> shadow_cancel{0};
std::atomic<int> shadow_running{0};

// The rows that init_control_panel assigns, not main.
static constexpr bool is_panel_setting(std::string_view name)
{
    return name == "light_color" || name == "light_dir" || name == "isovalue";
}

void set_default_settings()
{
    refresh = 1;
#define TAVOK_RESET_S(type, name, start) if (!is_panel_setting(#name)) name = start;
#define TAVOK_RESET_A(type, name, start) for (auto& e : name) e = start;
#define TAVOK_RESET_V(name, x, y, z)                                                             \
    if (!is_panel_setting(#name)) { name[0] = x; name[1] = y; name[2] = z; }
    TAVOK_SETTINGS(TAVOK_RESET_S, TAVOK_RESET_A, TAVOK_RESET_V)
#undef TAVOK_RESET_S
#undef TAVOK_RESET_A
#undef TAVOK_RESET_V
    shadow_cancel = 0;
    shadow_running = 0;
}

void set_panel_defaults()
{
    light_color = 0xffffff;
    light_dir[0] = 0.70710677f;
    light_dir[1] = 0.0f;
    light_dir[2] = -0.70710677f;
    isovalue = 2048;
}

template <class T> static constexpr SettingType type_of(std::string_view name)
{
    if constexpr (std::is_same_v<T, float>) return SettingType::Float;
    else if constexpr (std::is_same_v<T, uint8_t>) return SettingType::Byte;
    else if constexpr (std::is_same_v<T, unsigned>) {
        // Packed colours are unsigned too; they are told apart by name (edge_color, surface_tint).
        return name.find("color") != name.npos || name.find("tint") != name.npos
                   ? SettingType::Color : SettingType::UInt;
    } else return SettingType::Int;
}

#define TAVOK_REG_S(type, name, start) {#name, type_of<type>(#name), (void*)&name, 1},
#define TAVOK_REG_A(type, name, start) {#name, type_of<type>(#name), (void*)name, 4},
#define TAVOK_REG_V(name, x, y, z) {#name, SettingType::Float, (void*)name, 3},
const SettingInfo settings_registry[] = {
    TAVOK_SETTINGS(TAVOK_REG_S, TAVOK_REG_A, TAVOK_REG_V)
};
#undef TAVOK_REG_S
#undef TAVOK_REG_A
#undef TAVOK_REG_V
const int settings_registry_size = sizeof settings_registry / sizeof settings_registry[0];
