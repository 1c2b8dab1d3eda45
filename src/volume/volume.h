// volume.h — the voxel grid and what is derived from it: loaders, histogram, gradients,
// brick map, smoothing, cutting and the occlusion worker.
//
// The grid, gradients and brick map are written only by this room (the loaders, blur, cut and
// the occlusion worker, which writes occlusion bits only) and read by every render pass. They
// live until the next load; the pointers are replaced, never resized in place.
#pragma once
#include <atomic>
#include <cstddef>
#include <cstdint>

// Voxel word: density in bits 0-11, occlusion in bits 16-23, every other bit 0.
// Voxel (x, y, z) is at (x * vol_z + z) * vol_y + y: y fastest, then z, then x.
constexpr uint32_t density_mask = 0xfff;
extern uint32_t* voxels;
extern uint32_t vol_x, vol_y, vol_z;  // grid sizes, margin included (file sizes + 4 for .dat)

inline uint32_t voxel_index(uint32_t x, uint32_t y, uint32_t z)
{
    return (x * vol_z + z) * vol_y + y;
}

// The words are shared with the occlusion worker, which rewrites their occlusion half while
// the passes read them, with no lock. Every read that can overlap a running worker goes
// through here: a relaxed atomic load, so that the sharing is defined behaviour (and
// ThreadSanitizer sees it as such). It compiles to the plain load; no result changes.
[[gnu::always_inline]] inline uint32_t voxel_word(const uint32_t* words, size_t index)
{
    return __atomic_load_n(words + index, __ATOMIC_RELAXED);
}

// Density histogram of the last load or blur: 4096 counts, counted before the noise threshold
// of 500, so bins 1-499 hold true counts although the grid keeps none of those densities.
extern uint32_t histo[4096];
// Largest count of bins 500-4095, at least 1: the scale of the histogram in the editor strip.
extern uint32_t max_histo;
void compute_max_histo();

// Bytes a volume may take together with its gradients, 20 a voxel: a .dat file whose grid needs
// more is refused before anything is freed, since the load would end in the fatal path after
// the old volume is gone. 0, the start value, stands for the machine's physical memory; tests
// and the fuzz harness set a small budget. volume_memory_budget() is the limit in force.
extern uint64_t volume_memory_limit;
uint64_t volume_memory_budget();

// Why the latest file was refused: the message its loader printed, without the newline; empty
// when no file was refused since the last good load. Written by refuse_volume (and by the
// load path with the importer's reason) and cleared by the load path; read by the load path (for the panel) and tavok-render (for standard error).
extern char load_refusal[8192];
// A loader's refusal: prints the message as a log line on standard output, keeps it in
// load_refusal and returns false, for the loader to return.
bool refuse_volume(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Loads a .dat file: three 16-bit sizes, then 16-bit samples with x fastest. Samples below
// 500 are stored as 0; a sample above 4095 ends the program. A file that can't be opened, has
// a size of 0, is shorter than its header says or whose grid is too large is refused before
// anything is freed: a message, false, and the old volume stays. True: the new grid, its sizes
// (margin included), histo and the grey lookup tables stand; the load path does the rest.
bool load_dat_volume(const char* path);

// Load the palette voxel formats, KVX and VOX, at most 256 voxels along an axis, with no
// margin: the densities are palette indices 1 to 255 and the lookup tables become the file's
// palette. histo is added to, not cleared. A file that can't be opened or fails a check of its
// sizes, offsets, slab runs, length or palette is refused before anything is touched: a
// message, false, and the old volume stays.
bool load_kvx_volume(const char* path);
bool load_vox_volume(const char* path);

// Renderers step the voxel index in signed 32 bits: a grid, margin included, has at most this
// many words.
constexpr long long max_grid_words = 0x7fffffffLL;
// The two halves of every loader of 12-bit samples (.dat files and imported scans), so that
// both leave the same grid behind. replace_grid shows the sizes in GUIvolDim, frees the old
// grid, allocates the new one of (fx + 4) * (fy + 4) * (fz + 4) zeroed words, zeroes histo and
// resets the grey tables. store_samples then takes fx * fy * fz samples, x fastest, then y,
// then z: each is counted in histo, and those of 500 and above land on (x + 2, y + 2, z + 2);
// it sets the grid's sizes (the load path sets volume_loaded). It returns false at the first
// sample above 4095, on which the caller takes the fatal path ("error in file PATH"). Check
// everything about the new volume before replace_grid.
void replace_grid(uint32_t fx, uint32_t fy, uint32_t fz);
bool store_samples(const uint16_t* samples);

// Stores value in bits 16-31 of every word of the grid, leaving bits 0-15 alone.
void fill_occlusion(uint16_t value);

// ---------------------------------------------------------------------------------------------
// Gradients and brick map.
struct GradientRecord {
    float nx, ny, nz;  // unit gradient toward rising density; (0, 0, 0) in flat regions
    float magnitude;   // |gradient| / 4095
};
extern GradientRecord* gradients;  // one per voxel, at the voxel's index

// One cell per 8 x 8 x 8 brick, 0 when every density of the brick is 0; cell of voxel
// (x, y, z) at ((x >> 3) * block_z + (z >> 3)) * block_y + (y >> 3).
extern uint32_t* block_map;
extern uint32_t block_x, block_y, block_z;
// Beside each brick of block_map, at the same index: for an empty brick, the radius r in
// bricks of the cube of bricks around it that holds no solid brick (bricks outside the map
// count as empty), 0 to 254; 0 for a solid brick. The ray walks jump across such a cube in one
// go. Built with block_map, in the same allocation: freeing block_map frees it.
extern uint8_t* block_empty_radius;
// Beside each brick, at the same index: the largest density of its voxels (block_max_density),
// and the largest density that an interpolated sample taken in one of its cells can read
// (block_reach_density): its voxels and the layer one beyond each of its high faces, where
// the grid has one. A pass whose rays stop at an isovalue can pass over the bricks whose
// densities all lie below it. Built with block_map, in the same allocation.
extern uint16_t* block_max_density;
extern uint16_t* block_reach_density;
// Beside each voxel, at its index: the largest density of the eight voxels from it to one
// beyond it on each axis (clamped to the grid), what an interpolated sample in that cell reads.
// A sample in a cell whose reach is below an isovalue is below it too. Same allocation.
extern uint16_t* voxel_reach;
// For any map over the bricks (0: pass over the brick, else visit it), the radius in bricks of
// the cube of passable bricks around each passable brick (bricks outside the map count as
// passable), 0 to 254, and 0 for a brick to visit: block_empty_radius for block_map, and the
// same for the maps that passes make of their own.
void build_pass_radius(const uint32_t* map, uint8_t* radius);
// Counts the builds of block_map, so that what a pass derives from it can be kept until the
// next build.
extern uint32_t block_map_version;

void calc_gradients();
void build_block_map();
// Chessboard distance, in bricks, from every brick of a bx x by x bz map (brick order as
// block_map) to the nearest brick whose entry is 0, in place; other entries must be 255 on
// entry. Bricks outside the map don't count; distances stop at 255.
void brick_distances(uint8_t* d, uint32_t bx, uint32_t by, uint32_t bz);
// 3 x 3 x 3 box filter over the field (word & mask) >> shift, in place; recounts histo.
void smooth_field(uint32_t* words, uint32_t mask, int shift);
// "Blur Data": one smoothing pass and everything that depends on the densities.
void blur_data();

// ---------------------------------------------------------------------------------------------
// Cutting: erases the density bits (word & 0xfffff000) of the voxels on one side of a shape,
// tested at each voxel's centre (x + 0.5, y + 0.5, z + 0.5), margin included, in single
// precision. Occlusion and histo stay.
// Plane: nx, ny, nz, d; erases where px * nx + py * ny + d + pz * nz < 0 (0 survives).
void cut_with_plane(const float* plane);
// Sphere: cx, cy, cz, r²; v = |p - c|² - r². side 3 erases v < 0 (inside), 4 erases v > 0
// (outside), any other side nothing.
void cut_with_sphere(const float* sphere, int side);
// "Apply Cut": stops the occlusion worker, cuts with the shape of cut_kind (1 plane, 2 sphere,
// other values nothing), then max_histo, the editor backdrop, gradients, brick map, refresh.
void apply_cut();

// ---------------------------------------------------------------------------------------------
// Occlusion: how much light reaches each voxel, 0 (none) to 255 (all), in bits 16-23 of its
// word, bits 24-31 at 0. A load fills in 0x80; "Precalculate Occlusions" starts a worker thread
// that shoots a ray from every voxel toward the light and stores what it finds.
//
// The worker shares the words with the render passes and writes only their upper half, with
// relaxed atomic read-modify-writes; it never writes the density bits. Anything that frees or
// rewrites voxel words in bulk, or changes a setting the worker reads, first stops it.
extern std::atomic<float> shadow_progress;  // fraction done, 0 when idle; shown every frame
// "Precalculate Occlusions": logs "calculating occlusion"; with a volume, ends a running
// calculation, clears shadow_cancel, zeroes the shadow bar and starts the worker.
void start_occlusion();
// Logs "started shadow-calc thread", sets shadow_running and starts shadow_worker on a thread of
// its own. What the calculation reads besides the grid (light step, model, isovalue, opacity
// table) is copied here, on the main thread, so that later changes don't reach it.
void start_shadow_thread();
// The calculation (the thread's body; its argument is ignored, it returns 0): every voxel, z
// outermost, then y, x innermost; at the end shadow_progress = 0, the "finished" log line,
// refresh = 1 and shadow_running = 0. It ends early, keeping what it stored so far, when it
// sees shadow_cancel before a voxel that needs a ray.
int shadow_worker(void* data);
// shadow_cancel = 1 and wait until the worker has ended (a worker never started, or already
// waited for, is not waited for). shadow_cancel stays 1. Main thread only.
void stop_shadow_thread();
// The shadow guard of the handlers: a running worker is stopped and waited for, and the cancel
// flag is put back to 0 so that the next start runs. Every setting the worker reads is written
// only after it.
void shadow_guard();
// Waits until the running calculation has finished by itself, without cancelling it: for
// tavok-render and the tests. Main thread only.
void wait_for_occlusion();
// 3 x 3 x 3 box filter of the occlusion field over the voxels two or more in from every face;
// the two outer layers end at 0. Pumps the panel once per z layer of its first pass.
void smooth_occlusion();
// "Blur Shadows": with a volume, stops the worker (shadow guard), then smooth_occlusion between
// two zeroings of its bar, and refresh.
void blur_shadows();
