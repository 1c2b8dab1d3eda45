// bench_common.h — the small helpers every benchmark program uses: the wall clock in
// milliseconds, the median of a set of timings, an FNV-1a hash of a picture (printed beside the
// figures, so that a speed-up that changes a pixel shows at once), and a switch that sends the
// program's log lines to /dev/null while figures are taken. Header-only; benchmarks only.
#pragma once
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <vector>

static inline double now_ms()
{
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

static inline double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    size_t n = v.size();
    return n % 2 ? v[n / 2] : 0.5 * (v[n / 2 - 1] + v[n / 2]);
}

// FNV-1a over the bytes of n words.
static inline uint32_t fnv1a(const uint32_t* words, size_t n)
{
    uint32_t h = 2166136261u;
    const uint8_t* b = (const uint8_t*)words;
    for (size_t i = 0; i < n * 4; ++i) h = (h ^ b[i]) * 16777619u;
    return h;
}

// quiet(true) points standard output at /dev/null (the loaders and the rebuilds log every
// step), quiet(false) puts it back. Calls pair up; they don't nest.
static int quiet_saved_stdout = -1;
static inline void quiet(bool on)
{
    fflush(stdout);
    if (on) {
        quiet_saved_stdout = dup(1);
        int null = open("/dev/null", O_WRONLY);
        dup2(null, 1);
        close(null);
    } else {
        dup2(quiet_saved_stdout, 1);
        close(quiet_saved_stdout);
    }
}
