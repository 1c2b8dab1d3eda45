// tavok_render.cpp — tavok-render, the headless renderer: one view of one volume to a PNG,
// through exactly the code the window runs.
//
// Owns its command line (the RenderJob record) and nothing else. It starts the library as
// main does (settings table, panel start values, cut shapes, view, slices, camera), loads the
// file through the load path of the frame loop (load_volume_file), applies its options in one
// fixed order whatever their order on the command line, and renders as "Render to File"
// does: offscreen_render set, fresh buffers of the asked size, the mode's preview and then
// its final through the frame loop's dispatch (run_preview, run_final). The image,
// offscreen_pixels, goes out compressed through zlib (png_zlib.cpp, this tool's own writer),
// or with --stored through the program's writer of stored deflate blocks, as the window's
// screenshots are: the same pixels, some 30 to 100 times the size.
//
// Linked with the null doors of seam.h: no widget, no window, a fake clock. It must not change
// the passes or the dispatch, and nothing it runs while a pass is under way may set refresh.
// Every check of the command line happens before the output file is opened, so an error
// leaves no file behind.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <chrono>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "app/app.h"
#include "app/passes.h"
#include "core/core.h"
#include "core/seam.h"
#include "import/import.h"
#include "output/png.h"
#include "png_zlib.h"
#include "raycast/raycast.h"
#include "slices/slices.h"
#include "transfer/transfer.h"
#include "volume/volume.h"

// ---------------------------------------------------------------------------------------------
// Errors of the command line and of the job: one line on standard error, status 2, and since
// no error is raised after the output file is opened, no file.

[[noreturn]] static void fail(const char* format, ...) __attribute__((format(printf, 1, 2)));
static void fail(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    fputs("tavok-render: ", stderr);
    vfprintf(stderr, format, args);
    va_end(args);
    fputc('\n', stderr);
    fflush(stdout);
    stop_shadow_thread();
    exit(2);
}

static const char usage_text[] =
    "usage: tavok-render VOLUME -o OUT.png [options]\n"
    "       tavok-render VOLUME --bench N [-o OUT.png] [options]\n"
    "Renders one view of a volume (.dat, .kvx, .vox or a scan) to a PNG without a display, with the\n"
    "settings the window has after loading the file and switching to the 3D tab.\n"
    "Options (applied in this order, whatever their order here):\n"
    "  --size WxH               image size, 1..16383 each (default 1024x1024)\n"
    "  --blur N                 run \"Blur Data\" N times\n"
    "  --cut plane:NX,NY,NZ,D   cut away the negative side of a plane (repeatable)\n"
    "  --cut sphere:CX,CY,CZ,R2,inside|outside\n"
    "                           cut away the inside or outside of a sphere (repeatable)\n"
    "  --color POS=RRGGBB       colour node at density POS, 0..4095 (repeatable)\n"
    "  --opacity POS=VALUE      opacity node at density POS, VALUE 0..1 (repeatable)\n"
    "  --set NAME=VALUE         any render setting by name: vectors X,Y,Z, arrays NAME[i],\n"
    "                           colours as hex RRGGBB (repeatable); the slice view's too\n"
    "                           (slice_kind 0 XY, 1 XZ, 2 YZ, 3 plane; slice_x/y/z from 0 to\n"
    "                           size - 1; slice_zoom 3..1024; slice_normal, slice_d of the\n"
    "                           plane, whose basis also places the camera; slice_use_tf,\n"
    "                           slice_filter, slice_recenter)\n"
    "  --mode M                 slices, cuberille, firsthit, mip, avg, rbs or ics\n"
    "                           (default cuberille)\n"
    "  --interp I               none, bilinear or trilinear (default none)\n"
    "  --occlusion soft|hard    calculate occlusion before rendering (\"Precalculate\n"
    "                           Occlusions\" with soft or hard shadows), from the light,\n"
    "                           transfer function and isovalue the other options leave\n"
    "  --eye X,Y,Z              eye position in voxels (default: the view after loading)\n"
    "  --forward X,Y,Z          view direction\n"
    "  --look-at X,Y,Z          view direction toward this point\n"
    "  --up X,Y,Z               the camera's up vector; image rows are laid along it from\n"
    "                           the top, so it points to the bottom of the picture\n"
    "  --preview                write the quick preview instead of the final image\n"
    "  --abstract               write the abstract view instead: the volume's box and the\n"
    "                           cutting shape (--cut or --set cut_kind=...), no voxel read\n"
    "  --time                   print the preview and final times in milliseconds\n"
    "  --stored                 write the PNG uncompressed (stored deflate blocks), as the\n"
    "                           window's screenshots are; by default it is compressed\n"
    "  --bench N                render N times after a warm-up and print timings; beside\n"
    "                           another mode's final, the cuberille final of the same view;\n"
    "                           with --occlusion also N calculations, each from the field a\n"
    "                           load leaves\n"
    "  -o, --output OUT.png     the image to write\n"
    "  -h, --help               this text\n"
    "On any error it prints one line on standard error, exits with status 2 and writes no\n"
    "file: a bad option, or a volume it can't load (missing, not a regular file, too short,\n"
    "a size of 0, too large, or a sample above 4095, which the window treats as fatal).\n"
    "A scan (a DICOM series, by its folder or any of its files, NIfTI, NRRD or raw samples) is\n"
    "read as tavok reads it, with the same options:\n";

// ---------------------------------------------------------------------------------------------
// The job: everything the command line asks for, checked while it is read.

struct CutStep {
    int kind;        // 1 plane, 2 sphere
    float shape[4];  // plane NX, NY, NZ, D or sphere CX, CY, CZ, R2
    int side;        // sphere: 3 cut away inside, 4 outside
};
struct NodeStep {
    bool is_color;
    int pos;         // density 0..4095
    uint32_t color;  // 0x00RRGGBB for a colour node
    float opacity;   // 0..1 for an opacity node
};
struct SetStep {
    const SettingInfo* setting;
    int first;                     // first element written
    int count;                     // elements written
    union { int32_t i; uint32_t u; float f; } value[4];
};
struct RenderJob {
    const char* volume = nullptr;
    const char* output = nullptr;
    int width = 1024, height = 1024;
    int blur = 0;
    std::vector<CutStep> cuts;
    std::vector<NodeStep> nodes;
    std::vector<SetStep> sets;
    int mode = -1;    // -1: not given, cuberille
    int interp = -1;  // -1: not given, none
    int occlusion = 0;  // 1 soft, 2 hard (shadow_kind)
    bool has_eye = false, has_forward = false, has_look_at = false, has_up = false;
    float eye[3], forward[3], look_at[3], up[3];
    bool preview = false;
    bool abstract = false;  // the abstract view in place of the mode's passes
    bool time = false;
    bool stored = false;  // the program's own writer of stored blocks instead of zlib
    int bench = 0;
};

static const char* mode_name(int mode)
{
    const RenderPass* row = find_pass(mode);
    return row ? row->name : nullptr;
}

// Numbers are read whole: trailing characters, empty text, overflow and non-finite values are
// errors, never silently cut.
static bool parse_int(const char* text, long lo, long hi, long* out)
{
    if (!*text || isspace((unsigned char)*text)) return false;
    char* end;
    errno = 0;
    long v = strtol(text, &end, 10);
    if (*end || errno || v < lo || v > hi) return false;
    *out = v;
    return true;
}

static bool parse_float(const char* text, float* out)
{
    if (!*text || isspace((unsigned char)*text)) return false;
    char* end;
    errno = 0;
    float v = strtof(text, &end);
    if (*end || errno || !std::isfinite(v)) return false;
    *out = v;
    return true;
}

// A list of exactly n floats separated by commas.
static bool parse_floats(const char* text, int n, float* out)
{
    std::string s(text);
    size_t start = 0;
    for (int k = 0; k < n; ++k) {
        size_t comma = s.find(',', start);
        if ((comma == std::string::npos) != (k == n - 1)) return false;
        std::string part = s.substr(start, comma == std::string::npos ? std::string::npos
                                                                       : comma - start);
        if (!parse_float(part.c_str(), &out[k])) return false;
        start = comma + 1;
    }
    return true;
}

// RRGGBB in hex, 1 to 6 digits, with an optional # or 0x in front.
static bool parse_color(const char* text, uint32_t* out)
{
    if (text[0] == '#') text += 1;
    else if (text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) text += 2;
    size_t n = strlen(text);
    if (n < 1 || n > 6) return false;
    uint32_t v = 0;
    for (size_t k = 0; k < n; ++k) {
        char c = text[k];
        int d = c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10
              : c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
        if (d < 0) return false;
        v = v << 4 | (uint32_t)d;
    }
    *out = v;
    return true;
}

// The names --set knows, for its error messages: scalars as they are, vectors with X,Y,Z,
// arrays with their index range.
static std::string valid_setting_names()
{
    std::string names;
    for (int k = 0; k < settings_registry_size; ++k) {
        const SettingInfo& s = settings_registry[k];
        if (k) names += ", ";
        names += s.name;
        if (s.count == 3) names += "=X,Y,Z";
        if (s.count == 4) names += "[0-3]";
    }
    return names;
}

static const char* type_words(SettingType type)
{
    switch (type) {
    case SettingType::Int: return "an integer";
    case SettingType::UInt: return "an integer from 0 to 4294967295";
    case SettingType::Byte: return "an integer from 0 to 255";
    case SettingType::Float: return "a number";
    case SettingType::Color: return "a colour RRGGBB in hex";
    }
    return "a value";
}

static bool parse_setting_value(SettingType type, const char* text, SetStep* step, int k)
{
    long v;
    switch (type) {
    case SettingType::Int:
        if (!parse_int(text, INT32_MIN, INT32_MAX, &v)) return false;
        step->value[k].i = (int32_t)v;
        return true;
    case SettingType::UInt:
        if (text[0] == '-' || !parse_int(text, 0, UINT32_MAX, &v)) return false;
        step->value[k].u = (uint32_t)v;
        return true;
    case SettingType::Byte:
        if (!parse_int(text, 0, 255, &v)) return false;
        step->value[k].u = (uint32_t)v;
        return true;
    case SettingType::Float: return parse_float(text, &step->value[k].f);
    case SettingType::Color: return parse_color(text, &step->value[k].u);
    }
    return false;
}

// NAME=VALUE, NAME=X,Y,Z for a vector, NAME[i]=VALUE for an element of a vector or an array.
static SetStep parse_set(const char* arg)
{
    const char* eq = strchr(arg, '=');
    if (!eq) fail("--set needs NAME=VALUE, not '%s'", arg);
    std::string name(arg, eq - arg);
    const char* text = eq + 1;
    long index = -1;
    size_t bracket = name.find('[');
    if (bracket != std::string::npos) {
        if (name.back() != ']' ||
            !parse_int(name.substr(bracket + 1, name.size() - bracket - 2).c_str(), 0, 3, &index))
            fail("--set %s: bad index; valid names: %s", name.c_str(), valid_setting_names().c_str());
        name.resize(bracket);
    }
    const SettingInfo* setting = nullptr;
    for (int k = 0; k < settings_registry_size; ++k)
        if (name == settings_registry[k].name) setting = &settings_registry[k];
    if (!setting)
        fail("--set: unknown setting '%s'; valid names: %s", name.c_str(),
             valid_setting_names().c_str());

    SetStep step = {setting, 0, 1, {}};
    bool ok;
    if (index >= 0) {
        if (setting->count == 1 || index >= setting->count)
            fail("--set %s[%ld]: %s has no element %ld; valid names: %s", name.c_str(), index,
                 name.c_str(), index, valid_setting_names().c_str());
        step.first = (int)index;
        ok = parse_setting_value(setting->type, text, &step, 0);
    } else if (setting->count == 3) {
        step.count = 3;
        float v[3];
        ok = parse_floats(text, 3, v);
        for (int k = 0; ok && k < 3; ++k) step.value[k].f = v[k];
    } else if (setting->count == 4) {
        fail("--set %s: an array takes one element at a time, as %s[0]=VALUE to %s[3]=VALUE; "
             "valid names: %s", name.c_str(), name.c_str(), name.c_str(),
             valid_setting_names().c_str());
    } else {
        ok = parse_setting_value(setting->type, text, &step, 0);
    }
    if (!ok)
        fail("--set %s: bad value '%s', it takes %s; valid names: %s", arg, text,
             setting->count == 3 && index < 0 ? "three numbers X,Y,Z" : type_words(setting->type),
             valid_setting_names().c_str());
    return step;
}

static CutStep parse_cut(const char* arg)
{
    CutStep cut = {};
    if (strncmp(arg, "plane:", 6) == 0) {
        cut.kind = 1;
        if (!parse_floats(arg + 6, 4, cut.shape))
            fail("--cut %s: a plane is plane:NX,NY,NZ,D with four numbers", arg);
        return cut;
    }
    if (strncmp(arg, "sphere:", 7) == 0) {
        cut.kind = 2;
        std::string s(arg + 7);
        size_t comma = s.rfind(',');
        std::string side = comma == std::string::npos ? "" : s.substr(comma + 1);
        if (side == "inside") cut.side = 3;
        else if (side == "outside") cut.side = 4;
        if (!cut.side || !parse_floats(s.substr(0, comma).c_str(), 4, cut.shape))
            fail("--cut %s: a sphere is sphere:CX,CY,CZ,R2,inside or sphere:CX,CY,CZ,R2,outside", arg);
        if (cut.shape[3] < 0.0f) fail("--cut %s: the squared radius R2 can't be negative", arg);
        return cut;
    }
    fail("--cut %s: a cut is plane:NX,NY,NZ,D or sphere:CX,CY,CZ,R2,inside|outside", arg);
}

static NodeStep parse_node(const char* option, const char* arg)
{
    NodeStep node = {};
    node.is_color = strcmp(option, "--color") == 0;
    const char* eq = strchr(arg, '=');
    long pos;
    if (!eq || !parse_int(std::string(arg, eq - arg).c_str(), 0, 4095, &pos))
        fail("%s %s: needs POS=%s with a density POS from 0 to 4095", option, arg,
             node.is_color ? "RRGGBB" : "VALUE");
    node.pos = (int)pos;
    if (node.is_color) {
        if (!parse_color(eq + 1, &node.color))
            fail("%s %s: bad colour '%s', it takes RRGGBB in hex", option, arg, eq + 1);
    } else if (!parse_float(eq + 1, &node.opacity) || node.opacity < 0.0f || node.opacity > 1.0f) {
        fail("%s %s: bad opacity '%s', it takes a number from 0 to 1", option, arg, eq + 1);
    }
    return node;
}

static RenderJob parse_command_line(int argc, char** argv)
{
    RenderJob job;
    bool seen_size = false, seen_blur = false, seen_interp = false, seen_occlusion = false;
    for (int k = 1; k < argc; ++k) {
        const char* arg = argv[k];
        if (strcmp(arg, "-h") == 0 || strcmp(arg, "--help") == 0) {
            fputs(usage_text, stdout);
            fputs(import_usage_text, stdout);
            exit(0);
        }
        std::string import_error;
        int used = parse_import_option(argc, argv, k, import_error);
        if (used < 0) fail("%s", import_error.c_str());
        if (used > 0) {
            k += used - 1;
            continue;
        }
        if (arg[0] != '-' || arg[1] == '\0') {
            if (job.volume) fail("only one volume can be rendered: '%s' and '%s'", job.volume, arg);
            job.volume = arg;
            continue;
        }
        // --name=value and --name value are the same.
        std::string option(arg);
        const char* value = nullptr;
        size_t eq = option.find('=');
        if (option.compare(0, 2, "--") == 0 && eq != std::string::npos) {
            value = arg + eq + 1;
            option.resize(eq);
        }
        bool flag = option == "--preview" || option == "--time" || option == "--stored" ||
                    option == "--abstract";
        if (flag) {
            if (value) fail("%s takes no value", option.c_str());
        } else if (!value) {
            static const char* known[] = {"-o", "--output", "--size", "--blur", "--cut", "--color",
                                          "--opacity", "--set", "--mode", "--interp",
                                          "--occlusion", "--eye", "--forward", "--look-at", "--up",
                                          "--bench"};
            if (std::find_if(std::begin(known), std::end(known),
                             [&](const char* o) { return option == o; }) == std::end(known))
                fail("unknown option '%s' (see tavok-render --help)", arg);
            if (k + 1 >= argc) fail("%s needs a value", arg);
            value = argv[++k];
        }

        auto once = [&](bool& seen) {
            if (seen) fail("%s is given twice", option.c_str());
            seen = true;
        };
        auto vector3 = [&](bool& seen, float* v) {
            once(seen);
            if (!parse_floats(value, 3, v)) fail("%s %s: needs three numbers X,Y,Z", option.c_str(), value);
        };
        long n;
        if (option == "-o" || option == "--output") {
            if (job.output) fail("%s is given twice", option.c_str());
            if (!*value) fail("%s needs a file name", option.c_str());
            job.output = value;
        } else if (option == "--size") {
            once(seen_size);
            // Digits only on both sides: no sign, no space, no second x.
            std::string size(value);
            size_t x = size.find('x');
            long w, h;
            if (x == std::string::npos ||
                size.find_first_not_of("0123456789", 0) != x ||
                size.find_first_not_of("0123456789", x + 1) != std::string::npos ||
                !parse_int(size.substr(0, x).c_str(), 0, LONG_MAX, &w) ||
                !parse_int(size.substr(x + 1).c_str(), 0, LONG_MAX, &h))
                fail("--size %s: needs WxH, as 1024x1024", value);
            // A row is one stored deflate block of 4 * width + 1 bytes, which must fit 16 bits.
            if (w < 1 || h < 1 || w > 16383 || h > 16383)
                fail("--size %s: width and height must be from 1 to 16383", value);
            job.width = (int)w;
            job.height = (int)h;
        } else if (option == "--blur") {
            once(seen_blur);
            if (!parse_int(value, 0, 1000, &n)) fail("--blur %s: needs a count from 0 to 1000", value);
            job.blur = (int)n;
        } else if (option == "--cut") {
            job.cuts.push_back(parse_cut(value));
        } else if (option == "--color" || option == "--opacity") {
            job.nodes.push_back(parse_node(option.c_str(), value));
        } else if (option == "--set") {
            job.sets.push_back(parse_set(value));
        } else if (option == "--mode") {
            if (job.mode >= 0) fail("--mode is given twice");
            for (const RenderPass& row : render_passes)
                if (strcmp(value, row.name) == 0) job.mode = row.mode;
            if (job.mode < 0)
                fail("--mode %s: unknown mode; the modes are slices, cuberille, firsthit, mip, avg, "
                     "rbs and ics", value);
        } else if (option == "--interp") {
            once(seen_interp);
            if (strcmp(value, "none") == 0) job.interp = 0;
            else if (strcmp(value, "bilinear") == 0) job.interp = 1;
            else if (strcmp(value, "trilinear") == 0) job.interp = 2;
            else fail("--interp %s: needs none, bilinear or trilinear", value);
        } else if (option == "--occlusion") {
            once(seen_occlusion);
            if (strcmp(value, "soft") == 0) job.occlusion = 1;
            else if (strcmp(value, "hard") == 0) job.occlusion = 2;
            else fail("--occlusion %s: needs soft or hard", value);
        } else if (option == "--eye") {
            vector3(job.has_eye, job.eye);
        } else if (option == "--forward") {
            vector3(job.has_forward, job.forward);
        } else if (option == "--look-at") {
            vector3(job.has_look_at, job.look_at);
        } else if (option == "--up") {
            vector3(job.has_up, job.up);
        } else if (option == "--preview") {
            if (job.preview) fail("--preview is given twice");
            job.preview = true;
        } else if (option == "--stored") {
            if (job.stored) fail("--stored is given twice");
            job.stored = true;
        } else if (option == "--abstract") {
            if (job.abstract) fail("--abstract is given twice");
            job.abstract = true;
        } else if (option == "--time") {
            if (job.time) fail("--time is given twice");
            job.time = true;
        } else if (option == "--bench") {
            if (job.bench) fail("--bench is given twice");
            if (!parse_int(value, 1, 1000000, &n)) fail("--bench %s: needs a count from 1 to 1000000", value);
            job.bench = (int)n;
        } else {
            fail("unknown option '%s' (see tavok-render --help)", arg);
        }
    }
    if (!job.volume) fail("no volume given (see tavok-render --help)");
    if (!job.output && !job.bench) fail("no output file given: -o OUT.png");
    if (job.has_forward && job.has_look_at) fail("--forward and --look-at exclude each other");
    return job;
}

// ---------------------------------------------------------------------------------------------
// Checks of the job against this build and the file system, before anything is loaded.

static void check_job(const RenderJob& job)
{
    struct stat in;
    if (stat(job.volume, &in) != 0) fail("can't read %s: %s", job.volume, strerror(errno));
    // A folder is a DICOM series for the importer, which says so if it holds none.
    if (access(job.volume, R_OK) != 0) fail("can't read %s: %s", job.volume, strerror(errno));

    if (job.output) {
        // The file is created only after rendering; here it must be creatable, and it must not
        // be the volume itself.
        struct stat out;
        if (stat(job.output, &out) == 0) {
            if (S_ISDIR(out.st_mode)) fail("can't write %s: it is a folder", job.output);
            if (out.st_dev == in.st_dev && out.st_ino == in.st_ino)
                fail("can't write %s: it is the volume being rendered", job.output);
            if (access(job.output, W_OK) != 0) fail("can't write %s: %s", job.output, strerror(errno));
        } else {
            std::string dir(job.output);
            size_t slash = dir.rfind('/');
            dir = slash == std::string::npos ? "." : slash == 0 ? "/" : dir.substr(0, slash);
            struct stat d;
            if (stat(dir.c_str(), &d) != 0 || !S_ISDIR(d.st_mode))
                fail("can't write %s: the folder %s does not exist", job.output, dir.c_str());
            if (access(dir.c_str(), W_OK | X_OK) != 0)
                fail("can't write %s: %s", job.output, strerror(errno));
        }
    }

    // The mode that will be rendered: --mode, else the last --set render_mode, else cuberille.
    int mode = 0;
    for (const SetStep& step : job.sets)
        if (strcmp(step.setting->name, "render_mode") == 0) mode = step.value[0].i;
    if (job.mode >= 0) mode = job.mode;
    if (!mode_name(mode))
        fail("--set render_mode=%d: not a render mode; the modes are 0, 2, 4, 6, 8, 10 and 12", mode);
    if (!mode_is_rendered(mode))
        fail("%s %s: this render mode is not available yet", job.mode >= 0 ? "--mode" : "render mode",
             mode_name(mode));
}

// ---------------------------------------------------------------------------------------------
// Start-up and load, as the window has them.

static void apply_setting(const SetStep& step)
{
    for (int k = 0; k < step.count; ++k) {
        int at = step.first + k;
        switch (step.setting->type) {
        case SettingType::Int: ((int*)step.setting->value)[at] = step.value[k].i; break;
        case SettingType::UInt: ((unsigned*)step.setting->value)[at] = step.value[k].u; break;
        case SettingType::Byte: ((uint8_t*)step.setting->value)[at] = (uint8_t)step.value[k].u; break;
        case SettingType::Float: ((float*)step.setting->value)[at] = step.value[k].f; break;
        case SettingType::Color: ((uint32_t*)step.setting->value)[at] = step.value[k].u; break;
        }
    }
}

static float length3(const float* v) { return sqrtf(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]); }

// --eye moves ipos and keeps the frame. --forward, --look-at or --up rebuild it:
// ifor = normalise(forward), istr = normalise(up x ifor), iup = normalise(ifor x istr), with the
// system's normalising rule; what is not given comes from the frame the load left. A direction
// that rule would stretch (length 0.001 or less) is refused instead of drawn.
static void apply_camera(const RenderJob& job)
{
    if (job.has_eye)
        for (int i = 0; i < 3; ++i) ipos[i] = job.eye[i];
    if (!job.has_forward && !job.has_look_at && !job.has_up) return;

    float forward[3], up[3];
    for (int i = 0; i < 3; ++i) {
        forward[i] = job.has_forward ? job.forward[i]
                   : job.has_look_at ? job.look_at[i] - ipos[i] : ifor[i];
        up[i] = job.has_up ? job.up[i] : iup[i];
    }
    if (length3(forward) <= 0.001f)
        fail(job.has_look_at ? "--look-at: the point is the eye position, there is no direction to it"
                             : "--forward: the direction is too short");
    // An up along the view gives no frame: refuse it rather than render from a degenerate one.
    float unit_for[3] = {forward[0], forward[1], forward[2]};
    normalize3(unit_for);
    float side[3];
    cross3(up, unit_for, side);
    if (length3(side) <= 0.001f)
        fail("--up: the up direction is parallel to the view direction (or too short)");
    look_along(forward, up);
}

// "Precalculate Occlusions" with shadow_kind = kind (1 soft, 2 hard), from the settings as the
// options before it left them, waited for to its end. A light step that moves no coordinate
// of any position in the grid would leave every ray stepping forever: it is refused.
static void calculate_occlusion(int kind)
{
    float step[3], largest = 0.0f;
    for (int a = 0; a < 3; ++a) {
        step[a] = -light_dir[a] * shadow_stepsize;
        largest = std::max(largest, std::fabs(step[a]));
    }
    // Below the spacing of floats at the grid's far corner, a step can be lost in the rounding.
    const float far = (float)std::max(std::max(vol_x, vol_y), vol_z) + 2.0f;
    if (!(largest >= far * 0x1p-23f))
        fail("--occlusion: the light step -light_dir * shadow_stepsize = (%g, %g, %g) is too short to "
             "move a ray", step[0], step[1], step[2]);
    shadow_kind = kind;
    start_occlusion();
    wait_for_occlusion();
}

// The slice settings as the Slices tab leaves them. Its widgets keep every value inside the
// grid: a slice index from 0 to size - 1 (an index beyond it would be read outside the grid),
// four slice kinds, the zoom slider's 3 to 1024; a --set beyond them is refused here, where the
// sizes are known. The arbitrary plane's normal and distance fields build the plane's basis,
// which also puts the camera on the plane (the 3D switch looks from there): with slice_kind 3
// that happens here once, before the camera options.
static void settle_slice_settings()
{
    if (slice_kind < 0 || slice_kind > 3)
        fail("--set slice_kind=%d: the slice kinds are 0 (XY), 1 (XZ), 2 (YZ) and 3 (arbitrary plane)",
             slice_kind);
    const struct {
        const char* name;
        uint32_t index, size;
        char axis;
    } indexes[3] = {{"slice_x", slice_x, vol_x, 'x'}, {"slice_y", slice_y, vol_y, 'y'}, {"slice_z", slice_z, vol_z, 'z'}};
    for (const auto& s : indexes)
        if (s.index >= s.size)
            fail("--set %s=%u: the grid's %c runs from 0 to %u", s.name, s.index, s.axis, s.size - 1);
    if (!(slice_zoom >= 3.0f && slice_zoom <= 1024.0f))
        fail("--set slice_zoom=%g: the zoom runs from 3 to 1024 voxels across the picture", slice_zoom);
    if (slice_kind == 3) make_slice_basis();
}

// Everything the job asks of the loaded volume, in the fixed order of the options.
static void apply_job(const RenderJob& job)
{
    // The window after a load shows mode 12 until the 3D tab is chosen, which picks cuberille
    // (render_mode 0); that view is the default here.
    render_mode = mode_cuberille;

    alloc_frame_buffers((uint32_t)job.width, (uint32_t)job.height, (uint32_t)job.height);
    compute_view_constants();
    for (int k = 0; k < job.blur; ++k) blur_data();
    // Each cut as "Apply Cut" makes it: the shape becomes the cut setting (so an abstract view
    // shows the last one), then the grid is cut and what depends on it rebuilt.
    for (const CutStep& cut : job.cuts) {
        cut_kind = cut.kind;
        if (cut.kind == 1) {
            for (int i = 0; i < 3; ++i) cut_plane_n[i] = cut.shape[i];
            cut_plane_d = cut.shape[3];
        } else {
            for (int i = 0; i < 3; ++i) cut_sphere_center[i] = cut.shape[i];
            cut_sphere_r2 = cut.shape[3];
            cut_sphere_side = cut.side;
        }
        apply_cut();
    }

    for (const NodeStep& step : job.nodes) {
        if (step.is_color) set_color_node_at(step.pos, step.color);
        else set_opacity_node_at(step.pos, step.opacity);
    }
    for (const SetStep& step : job.sets) apply_setting(step);
    settle_slice_settings();
    if (job.mode >= 0) render_mode = job.mode;
    if (job.interp >= 0) interp_mode = (uint8_t)job.interp;
    if (job.occlusion) calculate_occlusion(job.occlusion);

    apply_camera(job);
}

// ---------------------------------------------------------------------------------------------
// Rendering, as "Render to File" renders: preview first, then the final of render_mode and
// interp_mode, into offscreen_pixels.

static double now_ms()
{
    using namespace std::chrono;
    return duration<double, std::milli>(steady_clock::now().time_since_epoch()).count();
}

struct PassTimes {
    double preview_ms;
    double final_ms;  // negative when no final ran
    uint64_t preview_rays, final_rays;
};

// The rays a preview cast: the lattice counts every ray it casts, on the first lattice and in
// the refinement (lattice_rays). The slice view, which has no lattice, is one ray per pixel,
// met with the plane.
static uint64_t preview_rays()
{
    const RenderPass* row = find_pass(render_mode);
    if (!row->lattice) return (uint64_t)render_target.width * render_target.height;
    return lattice_rays;
}

// The rays a final casts: one per pixel, except in the non-trilinear finals that keep the
// pixels the preview cast and cast the rest; column 0 is cast in any case. Counted from the
// mask the preview left, before the final runs.
static uint64_t final_rays()
{
    const uint32_t w = render_target.width, h = render_target.height;
    const RenderPass* row = find_pass(render_mode);
    bool trilinear = interp_mode == interp_trilinear && row->final_trilinear;
    if (!row->final_keeps_preview_rays || trilinear) return (uint64_t)w * h;
    const uint32_t m = (uint32_t)lattice_step - 1;
    uint64_t n = 0;
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x)
            n += x < 1 || (((x & m) != 0 || (y & m) != 0) && render_target.mask[(size_t)y * w + x] == 0);
    return n;
}

// The abstract view takes the place of the preview, with no final after it, as in the window
// while "Abstract / 3D View" is on; it casts one ray for every second pixel of every second line.
static PassTimes render_once(bool preview_only, bool abstract)
{
    size_t pixels = (size_t)render_target.width * render_target.height;
    memset(render_target.color, 0, pixels * 4);
    memset(render_target.depth, 0, pixels * 4);
    memset(render_target.mask, 0, pixels);

    // The frame loop's preparation of a preview: the lasting clamp of ifor, then view_dir and
    // half_vector from the clamped frame.
    clamp_forward();
    prepare_preview_vectors();

    // Nothing may interrupt: the null pumps deliver no events and no worker runs, so refresh
    // stays 0 through both passes; the check after them proves it.
    refresh = 0;
    final_pending = 0;
    PassTimes t = {0.0, -1.0, 0, 0};
    double t0 = now_ms();
    if (abstract) {
        render_abstract_view(&render_target, voxels, ipos, ifor, iup, istr);
        t.preview_ms = now_ms() - t0;
        t.preview_rays = (uint64_t)((render_target.width + 1) / 2) * ((render_target.height + 1) / 2);
        return t;
    }
    run_preview();
    t.preview_ms = now_ms() - t0;
    t.preview_rays = preview_rays();
    if (!preview_only && find_pass(render_mode)->final) {
        t.final_rays = final_rays();
        t0 = now_ms();
        if (!run_final())
            fail("render mode %s has no final pass for --interp %s yet", mode_name(render_mode),
                 interp_mode == 2 ? "trilinear" : interp_mode == 1 ? "bilinear" : "none");
        t.final_ms = now_ms() - t0;
    }
    if (refresh) {
        fprintf(stderr, "tavok-render: a pass was interrupted: refresh was set while rendering\n");
        exit(1);
    }
    return t;
}

static void write_image(const char* path, bool stored)
{
    const int w = (int)render_target.width, h = (int)render_target.height;
    if (!stored) {
        if (!write_png_zlib(path, offscreen_pixels, w, h)) {
            int error = errno;
            remove(path);
            fail("can't write %s: %s", path, strerror(error));
        }
        return;
    }
    png_open(path, w, h);
    if (!png_file) fail("can't write %s: %s", path, strerror(errno));
    size_t pixels = (size_t)w * h;
    for (size_t i = 0; i < pixels; ++i) png_put_pixel(offscreen_pixels[i]);
    // The writer tests none of its writes; a full disk shows in the size.
    struct stat s;
    if (stat(path, &s) != 0 || (uint64_t)s.st_size != png_file_size(w, h)) {
        remove(path);
        fail("can't write %s: the file came out short (disk full?)", path);
    }
}

static double median(std::vector<double> ms)
{
    std::sort(ms.begin(), ms.end());
    size_t n = ms.size();
    return n % 2 ? ms[n / 2] : 0.5 * (ms[n / 2 - 1] + ms[n / 2]);
}

// Rays per second over the median time: rays is the mean count of the timed runs (the same
// view gives the same count each time).
static void print_bench_line(const char* pass, std::vector<double> ms, double rays)
{
    std::sort(ms.begin(), ms.end());
    const double m = median(ms);
    printf("%s: median %.3f ms, min %.3f ms, max %.3f ms, %.0f rays/s\n", pass, m, ms[0], ms.back(),
           m > 0.0 ? rays / (m * 0.001) : 0.0);
}

// The library's fatal path ends the process with the window's status, 0 for a sample above
// 4095 ("error in file ..." on standard error). For a batch tool a volume it can't load is an
// error like any other: an exit while the volume loads leaves with status 2 instead (the
// message is out already; stdout was flushed by the fatal path).
static bool loading_volume = false;
static void exit_while_loading()
{
    if (loading_volume) _exit(2);
}

// N more calculations, each from the neutral field a load leaves, timed from the click to the
// worker's end; their log lines are not printed. The field ends as the first one left it.
static void bench_occlusion(int n)
{
    std::vector<double> ms;
    fflush(stdout);
    const int saved = dup(1), null = open("/dev/null", O_WRONLY);
    for (int k = 0; k < n; ++k) {
        fill_occlusion(0x80);
        dup2(null, 1);
        const double t0 = now_ms();
        start_occlusion();
        wait_for_occlusion();
        const double t1 = now_ms();
        fflush(stdout);
        dup2(saved, 1);
        ms.push_back(t1 - t0);
    }
    close(null);
    close(saved);
    std::sort(ms.begin(), ms.end());
    printf("occlusion (%s): median %.3f ms, min %.3f ms, max %.3f ms\n", shadow_kind == 1 ? "soft" : "hard",
           median(ms), ms[0], ms.back());
}

int main(int argc, char** argv)
{
    setvbuf(stdout, nullptr, _IOLBF, 0);
    RenderJob job = parse_command_line(argc, argv);
    check_job(job);

    // The window's start-up, without the window: a 512 x 512 window's image, then the job's.
    start_library(512, 512);
    atexit(exit_while_loading);
    loading_volume = true;
    // A refused file: the loader's reason, which its log line also gave, on standard error.
    if (!load_volume_file(job.volume)) fail("%s", load_refusal);
    loading_volume = false;
    apply_job(job);
    offscreen_render = 1;

    PassTimes t = render_once(job.preview, job.abstract);
    if (job.bench) {
        // Beside a ray-casting mode's final, the cuberille final of the same view, timed in
        // turn with it so that the machine's load weighs on both alike: a baseline that lets
        // figures be compared across machines. The mode's own passes run last, for the image.
        const int mode = render_mode;
        const bool baseline = !job.preview && !job.abstract && mode != mode_cuberille && find_pass(mode)->lattice &&
                              find_pass(mode)->final;
        std::vector<double> preview_ms, final_ms, cuberille_ms;
        double preview_rays = 0.0, final_rays = 0.0, cuberille_rays = 0.0;
        for (int k = 0; k < job.bench; ++k) {
            if (baseline) {
                render_mode = mode_cuberille;
                PassTimes c = render_once(false, false);
                cuberille_ms.push_back(c.final_ms);
                cuberille_rays += (double)c.final_rays / job.bench;
                render_mode = mode;
            }
            t = render_once(job.preview, job.abstract);
            preview_ms.push_back(t.preview_ms);
            preview_rays += (double)t.preview_rays / job.bench;
            if (t.final_ms >= 0.0) {
                final_ms.push_back(t.final_ms);
                final_rays += (double)t.final_rays / job.bench;
            }
        }
        print_bench_line(job.abstract ? "abstract" : "preview", preview_ms, preview_rays);
        if (final_ms.empty()) printf("final: none\n");
        else print_bench_line("final", final_ms, final_rays);
        if (baseline) {
            print_bench_line("cuberille final", cuberille_ms, cuberille_rays);
            printf("final / cuberille final: %.2f\n", median(final_ms) / median(cuberille_ms));
        }
        if (job.occlusion) bench_occlusion(job.bench);
    }
    if (job.time) {
        printf("%s: %.3f ms\n", job.abstract ? "abstract" : "preview", t.preview_ms);
        if (t.final_ms >= 0.0) printf("final: %.3f ms\n", t.final_ms);
        else printf("final: none\n");
    }
    if (job.output) write_image(job.output, job.stored);
    stop_shadow_thread();
    return 0;
}
