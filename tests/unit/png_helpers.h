// png_helpers.h — reading the PNG files the program writes, with zlib (used by the tests only)
// as a decoder independent of the program's own writer.
#pragma once
#include <zlib.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

inline std::vector<uint8_t> read_file(const std::string& path)
{
    std::vector<uint8_t> bytes;
    FILE* f = fopen(path.c_str(), "rb");
    if (!f) return bytes;
    int c;
    while ((c = getc(f)) != EOF) bytes.push_back((uint8_t)c);
    fclose(f);
    return bytes;
}

inline uint32_t be32(const std::vector<uint8_t>& b, size_t at)
{
    return (uint32_t)b[at] << 24 | (uint32_t)b[at + 1] << 16 | (uint32_t)b[at + 2] << 8 | b[at + 3];
}

// An independent reading of the file: chunk by chunk with zlib's CRC, the IDAT data through
// zlib's inflate (which also checks the Adler-32), filter bytes checked and removed. Returns
// false with a reason in *why when anything is off.
inline bool decode_png(const std::vector<uint8_t>& b, int* w, int* h, std::vector<uint32_t>* rgba,
                       std::string* why)
{
    static const uint8_t signature[8] = {0x89, 'P', 'N', 'G', 0x0d, 0x0a, 0x1a, 0x0a};
    if (b.size() < 8 || memcmp(b.data(), signature, 8) != 0) return *why = "signature", false;
    size_t at = 8;
    std::vector<uint8_t> idat;
    bool seen_end = false, seen_header = false;
    while (at + 12 <= b.size()) {
        uint32_t length = be32(b, at);
        if (at + 12 + (size_t)length > b.size()) return *why = "chunk past the end", false;
        std::string type(b.begin() + at + 4, b.begin() + at + 8);
        uLong crc = crc32(0L, Z_NULL, 0);
        crc = crc32(crc, b.data() + at + 4, 4 + length);
        if (crc != be32(b, at + 8 + length)) return *why = "crc of " + type, false;
        const uint8_t* data = b.data() + at + 8;
        if (type == "IHDR") {
            if (length != 13) return *why = "IHDR length", false;
            *w = (int)be32(b, at + 8);
            *h = (int)be32(b, at + 12);
            if (data[8] != 8 || data[9] != 6 || data[10] || data[11] || data[12])
                return *why = "IHDR fields", false;
            seen_header = true;
        } else if (type == "IDAT") {
            idat.insert(idat.end(), data, data + length);
        } else if (type == "IEND") {
            seen_end = true;
            at += 12 + length;
            break;
        }
        at += 12 + length;
    }
    if (!seen_header || !seen_end || at != b.size()) return *why = "chunk sequence", false;
    size_t row_bytes = 4 * (size_t)*w + 1;
    std::vector<uint8_t> raw(row_bytes * *h + 1);
    uLongf raw_size = raw.size();
    if (uncompress(raw.data(), &raw_size, idat.data(), idat.size()) != Z_OK)
        return *why = "inflate", false;
    if (raw_size != row_bytes * *h) return *why = "inflated size", false;
    rgba->clear();
    for (int y = 0; y < *h; ++y) {
        const uint8_t* row = raw.data() + y * row_bytes;
        if (row[0] != 0) return *why = "filter byte", false;
        for (int x = 0; x < *w; ++x) {
            const uint8_t* p = row + 1 + 4 * x;
            rgba->push_back((uint32_t)p[0] << 24 | (uint32_t)p[1] << 16 | (uint32_t)p[2] << 8 | p[3]);
        }
    }
    return true;
}

