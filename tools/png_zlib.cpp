// png_zlib.cpp — tavok-render's compressed PNG writer (png_zlib.h). zlib does the deflate and the
// CRCs; this file chooses the filters and cuts the stream into IDAT chunks.
//
// The image is deflated twice: every row unfiltered, and every row with the filter of the five
// (none, sub, up, average, Paeth) whose filtered bytes, read as signed, have the smallest sum
// of magnitudes, the usual rule of thumb for true-colour images; the smaller result is
// written. Called by tavok-render only; touches no global of the program.
#include "png_zlib.h"

#include <zlib.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

static void put_be32(uint8_t* p, uint32_t v)
{
    p[0] = (uint8_t)(v >> 24), p[1] = (uint8_t)(v >> 16), p[2] = (uint8_t)(v >> 8), p[3] = (uint8_t)v;
}

// One chunk: length, type, data, CRC of type and data.
static bool put_chunk(FILE* file, const char* type, const uint8_t* data, uint32_t length)
{
    uint8_t head[8], tail[4];
    put_be32(head, length);
    memcpy(head + 4, type, 4);
    uLong crc = crc32(0L, (const Bytef*)type, 4);
    if (length) crc = crc32(crc, data, length);
    put_be32(tail, (uint32_t)crc);
    return fwrite(head, 1, 8, file) == 8 && (!length || fwrite(data, 1, length, file) == length) &&
           fwrite(tail, 1, 4, file) == 4;
}

static int paeth(int a, int b, int c)
{
    int p = a + b - c, pa = abs(p - a), pb = abs(p - b), pc = abs(p - c);
    return pa <= pb && pa <= pc ? a : pb <= pc ? b : c;
}

// Fills out[0..n] with the filter type and the row filtered by it; returns the sum of the
// filtered bytes as signed magnitudes.
static unsigned filter_row(int type, const uint8_t* row, const uint8_t* prior, size_t n, uint8_t* out)
{
    constexpr size_t bpp = 3;
    out[0] = (uint8_t)type;
    unsigned sum = 0;
    for (size_t i = 0; i < n; ++i) {
        const int a = i >= bpp ? row[i - bpp] : 0, b = prior[i], c = i >= bpp ? prior[i - bpp] : 0;
        int predicted = type == 1 ? a : type == 2 ? b : type == 3 ? (a + b) / 2 : type == 4 ? paeth(a, b, c) : 0;
        const uint8_t v = (uint8_t)(row[i] - predicted);
        out[i + 1] = v;
        sum += v < 128 ? v : 256 - v;
    }
    return sum;
}

// The image's rows, each behind its filter byte, deflated into out: with filter none on every
// row (adaptive false), or with the filter of least magnitudes per row.
static bool deflate_rows(const uint32_t* pixels, int width, int height, bool adaptive,
                         std::vector<uint8_t>& out)
{
    const size_t n = (size_t)width * 3;
    std::vector<uint8_t> row(n), prior(n, 0), best(n + 1), trial(n + 1);
    z_stream z = {};
    if (deflateInit(&z, 9) != Z_OK) return false;
    out.resize(deflateBound(&z, (uLong)((n + 1) * height)));
    z.next_out = out.data();
    z.avail_out = (uInt)out.size();
    bool ok = true;
    for (int y = 0; ok && y < height; ++y) {
        const uint32_t* p = pixels + (size_t)y * width;
        for (int x = 0; x < width; ++x) {
            row[3 * x] = (uint8_t)(p[x] >> 16);
            row[3 * x + 1] = (uint8_t)(p[x] >> 8);
            row[3 * x + 2] = (uint8_t)p[x];
        }
        unsigned best_sum = filter_row(0, row.data(), prior.data(), n, best.data());
        for (int type = 1; adaptive && type <= 4; ++type) {
            unsigned sum = filter_row(type, row.data(), prior.data(), n, trial.data());
            if (sum < best_sum) best_sum = sum, best.swap(trial);
        }
        z.next_in = best.data();
        z.avail_in = (uInt)(n + 1);
        ok = deflate(&z, Z_NO_FLUSH) == Z_OK && z.avail_in == 0;
        prior.swap(row);
    }
    ok = ok && deflate(&z, Z_FINISH) == Z_STREAM_END;
    out.resize(out.size() - z.avail_out);
    deflateEnd(&z);
    return ok;
}

bool write_png_zlib(const char* path, const uint32_t* pixels, int width, int height)
{
    // Filters pay on smooth shading and cost on hard-edged patterns (a cuberille view compresses
    // best unfiltered): both are tried, the smaller is kept.
    std::vector<uint8_t> plain, filtered;
    if (!deflate_rows(pixels, width, height, false, plain) ||
        !deflate_rows(pixels, width, height, true, filtered)) {
        errno = ENOMEM;
        return false;
    }
    const std::vector<uint8_t>& data = filtered.size() < plain.size() ? filtered : plain;

    FILE* file = fopen(path, "wb");
    if (!file) return false;
    static const uint8_t signature[8] = {0x89, 'P', 'N', 'G', 0x0d, 0x0a, 0x1a, 0x0a};
    uint8_t ihdr[13];
    put_be32(ihdr, (uint32_t)width);
    put_be32(ihdr + 4, (uint32_t)height);
    ihdr[8] = 8;   // bit depth
    ihdr[9] = 2;   // colour type: RGB; every pixel is opaque
    ihdr[10] = ihdr[11] = ihdr[12] = 0;  // deflate, adaptive filters, no interlace
    bool ok = fwrite(signature, 1, 8, file) == 8 && put_chunk(file, "IHDR", ihdr, 13);
    // IDAT chunks of at most 64 KB, as decoders like them.
    for (size_t at = 0; ok && at < data.size(); at += 1 << 16) {
        size_t length = data.size() - at < (1u << 16) ? data.size() - at : 1u << 16;
        ok = put_chunk(file, "IDAT", data.data() + at, (uint32_t)length);
    }
    ok = ok && put_chunk(file, "IEND", nullptr, 0);
    if (fclose(file) != 0) ok = false;
    return ok;
}
