// import.cpp — the importer's front: its options, which files it takes, and the road of one
// file: reader, mapping, turn onto the grid's axes, box reduction and resampling, the log.
//
// Owns import_options and import_progress. Called by the load path, tavok-render and
// tavok-import; it replaces the grid only through the volume room's replace_grid and
// store_samples, after everything has been read and checked.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <cerrno>
#include <cstdarg>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "import/import_local.h"
#include "volume/volume.h"

ImportOptions import_options;
void (*import_progress)(double fraction) = nullptr;

char import_refusal[4096];

void report_progress(double fraction)
{
    if (import_progress) import_progress(fraction);
}

bool refuse_import(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    vsnprintf(import_refusal, sizeof import_refusal, format, args);
    va_end(args);
    printf("%s\n", import_refusal);
    return false;
}

// ---------------------------------------------------------------------------------------------
// Options.

const char import_usage_text[] =
    "  --raw X,Y,Z,TYPE[,le|be]  read a file of no known format (and not named .dat) as X*Y*Z\n"
    "                            samples of TYPE u8, i16, u16 or f32, x fastest, then y, then z,\n"
    "                            little-endian unless be is given\n"
    "  --window LO,HI            map values LO..HI to densities 0..4095 (default: a CT's\n"
    "                            hounsfield units + 1024, anything else its 0.5 % to 99.5 % range)\n"
    "  --keep-grid               keep the file's voxels; by default non-cubic voxels are\n"
    "                            resampled to cubes at the finest spacing\n"
    "  --max-size N              reduce the grid by box averaging until no side is longer than N\n";

// Splits text at commas into at most max fields; false when there are more.
static int split_commas(const char* text, std::string* fields, int max)
{
    int n = 0;
    std::string field;
    for (const char* c = text;; ++c) {
        if (*c == ',' || *c == 0) {
            if (n == max) return max + 1;
            fields[n++] = field;
            field.clear();
            if (*c == 0) return n;
        } else {
            field += *c;
        }
    }
}

static bool parse_double(const std::string& text, double& value)
{
    char* end = nullptr;
    value = strtod(text.c_str(), &end);
    return !text.empty() && *end == 0 && std::isfinite(value);
}

static bool parse_size(const std::string& text, uint32_t& value)
{
    char* end = nullptr;
    if (text.empty() || text[0] == '-' || text[0] == '+') return false;
    unsigned long v = strtoul(text.c_str(), &end, 10);
    if (*end != 0 || v == 0 || v > 65535) return false;
    value = (uint32_t)v;
    return true;
}

int parse_import_option(int argc, char** argv, int k, std::string& error)
{
    const char* arg = argv[k];
    if (strcmp(arg, "--keep-grid") == 0) {
        import_options.keep_grid = true;
        return 1;
    }
    bool takes_value = strcmp(arg, "--raw") == 0 || strcmp(arg, "--window") == 0 ||
                       strcmp(arg, "--max-size") == 0;
    if (!takes_value) return 0;
    if (k + 1 >= argc) {
        error = std::string(arg) + " needs a value";
        return -1;
    }
    const char* value = argv[k + 1];
    std::string f[5];
    if (strcmp(arg, "--raw") == 0) {
        int n = split_commas(value, f, 5);
        static const char* const types[] = {"u8", "i16", "u16", "f32"};
        static const SampleType type_of[] = {SampleType::u8, SampleType::i16, SampleType::u16,
                                             SampleType::f32};
        int type = -1;
        for (int t = 0; t < 4 && n >= 4; ++t)
            if (f[3] == types[t]) type = t;
        bool ok = (n == 4 || n == 5) && parse_size(f[0], import_options.raw_size[0]) &&
                  parse_size(f[1], import_options.raw_size[1]) &&
                  parse_size(f[2], import_options.raw_size[2]) && type >= 0 &&
                  (n == 4 || f[4] == "le" || f[4] == "be");
        if (!ok) {
            error = std::string("--raw takes X,Y,Z,TYPE[,le|be] with sizes 1 to 65535 and TYPE one "
                                "of u8, i16, u16, f32, not ") + value;
            return -1;
        }
        import_options.raw = true;
        import_options.raw_type = type_of[type];
        import_options.raw_big_endian = n == 5 && f[4] == "be";
        return 2;
    }
    if (strcmp(arg, "--window") == 0) {
        double lo, hi;
        if (split_commas(value, f, 2) != 2 || !parse_double(f[0], lo) || !parse_double(f[1], hi) ||
            !(hi > lo)) {
            error = std::string("--window takes LO,HI with LO below HI, not ") + value;
            return -1;
        }
        import_options.window = true;
        import_options.window_lo = lo;
        import_options.window_hi = hi;
        return 2;
    }
    uint32_t n;
    if (!parse_size(value, n)) {
        error = std::string("--max-size takes a side of 1 to 65535 voxels, not ") + value;
        return -1;
    }
    import_options.max_size = n;
    return 2;
}

// ---------------------------------------------------------------------------------------------
// Which reader.

enum class Format { none, dicom, nifti, nrrd, raw };

static bool ends_with_any_case(const char* name, const char* tail)
{
    size_t n = strlen(name), m = strlen(tail);
    return n >= m && strcasecmp(name + n - m, tail) == 0;
}

static bool is_directory(const char* path)
{
    struct stat st;
    return stat(path, &st) == 0 && S_ISDIR(st.st_mode);
}

// What the first bytes say: DICOM ("DICM" after the 128-byte preamble), NRRD ("NRRD000"),
// NIfTI-1 (header size 348, "n+1" at 344) or NIfTI-2 (header size 540, "n+2" at 4).
static Format sniff(const char* path)
{
    uint8_t head[352] = {};
    FILE* f = fopen(path, "rb");
    if (!f) return Format::none;
    size_t got = fread(head, 1, sizeof head, f);
    fclose(f);
    if (got >= 132 && memcmp(head + 128, "DICM", 4) == 0) return Format::dicom;
    if (got >= 7 && memcmp(head, "NRRD000", 7) == 0) return Format::nrrd;
    auto le32 = [&](int at) { return head[at] | head[at + 1] << 8 | head[at + 2] << 16 | (uint32_t)head[at + 3] << 24; };
    auto be32 = [&](int at) { return head[at + 3] | head[at + 2] << 8 | head[at + 1] << 16 | (uint32_t)head[at] << 24; };
    bool size348 = le32(0) == 348 || be32(0) == 348, size540 = le32(0) == 540 || be32(0) == 540;
    if (got >= 348 && size348 && memcmp(head + 344, "n+1", 4) == 0) return Format::nifti;
    if (got >= 8 && size540 && memcmp(head + 4, "n+2", 4) == 0) return Format::nifti;
    return Format::none;
}

static Format format_of(const char* path)
{
    if (ends_with_any_case(path, ".dat") || ends_with_any_case(path, ".kvx") ||
        ends_with_any_case(path, ".vox"))
        return Format::none;
    if (is_directory(path)) return Format::dicom;
    static const char* const nifti_names[] = {".nii", ".nii.gz", ".hdr", ".img", ".hdr.gz", ".img.gz"};
    for (const char* tail : nifti_names)
        if (ends_with_any_case(path, tail)) return Format::nifti;
    if (ends_with_any_case(path, ".nrrd") || ends_with_any_case(path, ".nhdr")) return Format::nrrd;
    if (ends_with_any_case(path, ".dcm") || ends_with_any_case(path, ".dicom") ||
        ends_with_any_case(path, ".ima"))
        return Format::dicom;
    Format f = sniff(path);
    if (f == Format::none && import_options.raw) return Format::raw;
    return f;
}

bool is_import_path(const char* path)
{
    return format_of(path) != Format::none;
}

// ---------------------------------------------------------------------------------------------
// The grid's sizes.

// The load's memory budget, 0 for none (tavok-import).
static uint64_t grid_budget = 0;

// The largest grid the program takes: the voxel index, a side a .dat header can hold, and the
// memory budget of the grid with its gradients.
static bool grid_fits(const double n[3])
{
    double longest = std::max({n[0], n[1], n[2]});
    if (import_options.max_size && longest > import_options.max_size) return false;
    if (longest > 65535.0) return false;
    double words = (n[0] + 4) * (n[1] + 4) * (n[2] + 4);
    if (grid_budget && words * (4 + sizeof(GradientRecord)) > (double)grid_budget) return false;
    return words <= (double)max_grid_words;
}

// How a grid of n voxels of s millimetres becomes the program's: first boxes of box[a] voxels
// are averaged, then (when resample is set) the result is resampled trilinearly, step[a]
// input voxels per output voxel, to out[a] voxels. The target spacing is the finest of the
// axes (each axis's own with --keep-grid), times the smallest whole factor that makes the grid
// fit. Axes of one voxel do not count for the finest spacing.
struct GridPlan {
    uint32_t factor = 1;
    uint32_t box[3] = {1, 1, 1};
    double step[3] = {1, 1, 1};
    uint32_t out[3] = {0, 0, 0};
    double spacing[3] = {1, 1, 1};
    bool resample = false;
    const char* reason = "";  // why the grid was reduced, for the log
};

static GridPlan plan_grid(const uint32_t n[3], const double s[3])
{
    double finest = 0.0;
    for (int a = 0; a < 3; ++a)
        if (n[a] > 1 && (finest == 0.0 || s[a] < finest)) finest = s[a];
    if (finest == 0.0) finest = s[0];
    GridPlan plan;
    for (uint32_t f = 1;; ++f) {
        double out[3];
        plan.factor = f;
        plan.resample = false;
        for (int a = 0; a < 3; ++a) {
            double target = (import_options.keep_grid ? s[a] : finest) * f;
            uint32_t box = (uint32_t)std::max(1.0, floor(target / s[a] + 1e-6));
            uint32_t boxed = (n[a] + box - 1) / box;
            double boxed_spacing = s[a] * box;
            plan.box[a] = box;
            plan.spacing[a] = target;
            // Spacings that agree to 1 in 10^4 count as equal: no resampling along that axis.
            if (fabs(boxed_spacing - target) <= 1e-4 * target || boxed == 1) {
                plan.step[a] = 1.0;
                out[a] = boxed;
            } else {
                plan.step[a] = target / boxed_spacing;
                out[a] = floor((boxed - 1) / plan.step[a] + 1e-6) + 1;
                plan.resample = true;
            }
        }
        if (grid_fits(out)) {
            for (int a = 0; a < 3; ++a) plan.out[a] = (uint32_t)out[a];
            return plan;
        }
        if (f == 1)
            plan.reason = import_options.max_size && std::max({out[0], out[1], out[2]}) > import_options.max_size
                              ? "--max-size" : "the largest grid the program takes";
    }
}

// ---------------------------------------------------------------------------------------------
// The readers run in a child process.
//
// GDCM, niftilib and teem trust much of what they read, and Debian builds GDCM with its
// asserts: a damaged file can abort or crash them. So they read in a child process: it hands
// back the volume through an anonymous memory file and its progress through a pipe, and a
// child that dies costs a message, not the program with the volume on screen. The child
// touches neither window: it prints its messages, reports progress and ends with _exit.

// The volume's description as the child hands it over; the samples follow it.
struct HandOver {
    const char* format;  // a literal of the reader: the same address in both processes
    uint32_t size[3];
    SampleType type;
    double slope, intercept;
    double spacing[3];
    double axis[3][3];
    bool hounsfield;
};

static int progress_pipe = -1;

static void progress_to_parent(double fraction)
{
    ssize_t written = write(progress_pipe, &fraction, sizeof fraction);
    (void)written;  // a lost progress report changes nothing
}

static bool write_all(int fd, const void* data, size_t bytes)
{
    const char* p = (const char*)data;
    while (bytes > 0) {
        ssize_t n = write(fd, p, bytes);
        if (n <= 0 && errno != EINTR) return false;
        if (n > 0) {
            p += n;
            bytes -= (size_t)n;
        }
    }
    return true;
}

[[noreturn]] static void run_child(bool (*reader)(const char*, SourceVolume&), const char* path,
                                   int memory_file)
{
    import_progress = progress_to_parent;
    // The libraries' own complaints (GDCM's asserts, libjpeg's warnings) would only repeat
    // ours less clearly.
    int quiet = open("/dev/null", O_WRONLY);
    if (quiet >= 0) dup2(quiet, 2);
    SourceVolume src;
    bool ok = reader(path, src);
    if (ok) {
        HandOver h{src.format, {src.size[0], src.size[1], src.size[2]}, src.type, src.slope,
                   src.intercept, {src.spacing[0], src.spacing[1], src.spacing[2]}, {},
                   src.hounsfield};
        memcpy(h.axis, src.axis, sizeof h.axis);
        size_t bytes = (size_t)src.size[0] * src.size[1] * src.size[2] * sample_bytes(src.type);
        ok = write_all(memory_file, &h, sizeof h) && write_all(memory_file, src.data, bytes);
        if (!ok) refuse_import("can't read %s: no memory to hand its samples over", path);
    }
    if (!ok) {
        // The parent takes the reason from the start of the memory file.
        ftruncate(memory_file, 0);
        pwrite(memory_file, import_refusal, strlen(import_refusal), 0);
    }
    fflush(stdout);
    _exit(ok ? 0 : 1);
}

static bool read_in_child(bool (*reader)(const char*, SourceVolume&), const char* name,
                          const char* path, SourceVolume& src)
{
    int memory_file = memfd_create("tavok-import", MFD_CLOEXEC);
    int pipe_ends[2];
    if (memory_file < 0 || pipe(pipe_ends) != 0) {
        // Without the means to isolate it, the reader runs here.
        if (memory_file >= 0) close(memory_file);
        return reader(path, src);
    }
    fflush(stdout);
    fflush(stderr);
    pid_t child = fork();
    if (child == 0) {
        close(pipe_ends[0]);
        progress_pipe = pipe_ends[1];
        run_child(reader, path, memory_file);
    }
    close(pipe_ends[1]);
    if (child < 0) {
        close(pipe_ends[0]);
        close(memory_file);
        return reader(path, src);
    }
    double fraction;
    for (;;) {
        ssize_t n = read(pipe_ends[0], &fraction, sizeof fraction);
        if (n == (ssize_t)sizeof fraction) report_progress(fraction);
        else if (n == 0 || errno != EINTR) break;
    }
    close(pipe_ends[0]);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    bool ok = false;
    if (WIFEXITED(status) && WEXITSTATUS(status) == 1) {
        // The child printed its message; keep it here too.
        ssize_t n = pread(memory_file, import_refusal, sizeof import_refusal - 1, 0);
        import_refusal[n > 0 ? n : 0] = 0;
    } else if (WIFSIGNALED(status)) {
        refuse_import("can't read %s: %s failed on it (signal %d): the file is damaged or not what its "
               "name says", path, name, WTERMSIG(status));
    } else if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
        HandOver h;
        ok = pread(memory_file, &h, sizeof h, 0) == (ssize_t)sizeof h;
        size_t bytes = ok ? (size_t)h.size[0] * h.size[1] * h.size[2] * sample_bytes(h.type) : 0;
        src.data = ok ? malloc(bytes ? bytes : 1) : nullptr;
        size_t got = 0;
        while (src.data && got < bytes) {
            ssize_t n = pread(memory_file, (char*)src.data + got, bytes - got, sizeof h + got);
            if (n <= 0) break;
            got += (size_t)n;
        }
        ok = src.data && got == bytes;
        if (ok) {
            src.format = h.format;
            memcpy(src.size, h.size, sizeof src.size);
            src.type = h.type;
            src.slope = h.slope;
            src.intercept = h.intercept;
            memcpy(src.spacing, h.spacing, sizeof src.spacing);
            memcpy(src.axis, h.axis, sizeof src.axis);
            src.hounsfield = h.hounsfield;
        } else {
            refuse_import("can't read %s: not enough memory for its samples", path);
        }
    }
    close(memory_file);
    return ok;
}

// ---------------------------------------------------------------------------------------------
// The road of one file.

static const char* const axis_names = "ijk";

bool import_volume(const char* path, ImportedVolume& out, uint64_t memory_budget)
{
    grid_budget = memory_budget;
    import_refusal[0] = 0;
    struct stat st;
    if (stat(path, &st) != 0) {
        refuse_import("can't open file %s", path);
        return false;
    }
    SourceVolume src;
    bool ok = false;
    switch (format_of(path)) {
    case Format::dicom: ok = read_in_child(read_dicom, "GDCM", path, src); break;
    case Format::nifti: ok = read_in_child(read_nifti, "niftilib", path, src); break;
    case Format::nrrd: ok = read_in_child(read_nrrd, "teem", path, src); break;
    case Format::raw: ok = read_raw(path, src); break;
    case Format::none:
        refuse_import("can't read %s: no reader recognises it (DICOM, NIfTI, NRRD; raw samples need "
               "--raw X,Y,Z,TYPE)", path);
        return false;
    }
    if (!ok) return false;
    for (int a = 0; a < 3; ++a)
        if (!(src.spacing[a] > 0.0) || !std::isfinite(src.spacing[a])) src.spacing[a] = 1.0;
    printf("%s %s: %u x %u x %u samples of %s, %g x %g x %g mm\n", src.format, path, src.size[0],
           src.size[1], src.size[2], sample_type_name(src.type), src.spacing[0], src.spacing[1],
           src.spacing[2]);

    Mapping map = choose_mapping(src);
    AxisTurn turn = choose_turn(src.axis);
    Grid16 grid;
    map_and_turn(src, map, turn, grid);
    free(src.data);
    src.data = nullptr;
    double spacing[3];
    bool turned = false;
    for (int a = 0; a < 3; ++a) {
        spacing[turn.axis_of[a]] = src.spacing[a];
        turned |= turn.axis_of[a] != a || turn.flipped[a];
    }
    if (turned) {
        char text[3][3];
        for (int a = 0; a < 3; ++a) {
            text[turn.axis_of[a]][0] = turn.flipped[a] ? '-' : '+';
            text[turn.axis_of[a]][1] = axis_names[a];
            text[turn.axis_of[a]][2] = 0;
        }
        printf("turned the file's axes: x = %s, y = %s, z = %s\n", text[0], text[1], text[2]);
    }

    GridPlan plan = plan_grid(grid.n, spacing);
    if (plan.box[0] > 1 || plan.box[1] > 1 || plan.box[2] > 1) {
        Grid16 reduced;
        box_reduce(grid, plan.box, reduced);
        printf("reduced %u x %u x %u to %u x %u x %u by averaging boxes of %u x %u x %u voxels (%s)\n",
               grid.n[0], grid.n[1], grid.n[2], reduced.n[0], reduced.n[1], reduced.n[2],
               plan.box[0], plan.box[1], plan.box[2], plan.reason);
        for (int a = 0; a < 3; ++a) spacing[a] *= plan.box[a];
        grid = std::move(reduced);
    }
    if (plan.resample) {
        Grid16 resampled;
        resample_trilinear(grid, plan.step, plan.out, resampled);
        printf("resampled %u x %u x %u voxels of %g x %g x %g mm to %u x %u x %u voxels of %g mm\n",
               grid.n[0], grid.n[1], grid.n[2], spacing[0], spacing[1], spacing[2], plan.out[0],
               plan.out[1], plan.out[2], plan.spacing[0]);
        grid = std::move(resampled);
    }
    for (int a = 0; a < 3; ++a) {
        out.size[a] = grid.n[a];
        out.spacing[a] = plan.spacing[a];
    }
    out.samples = std::move(grid.v);
    return true;
}
