// png.cpp — the streaming PNG writer. Owns the png_* state of png.h.
//
// Called by the screenshot handlers and tavok-render: png_open once, then png_put_pixel for
// exactly width * height pixels. It reads nothing of the renderer and touches no setting.
//
// Layout of the file: signature, IHDR, one IDAT chunk whose data is a zlib stream of stored
// deflate blocks, one block per image row (BFINAL, LEN, NLEN, then the filter byte 0 and the
// row's RGBA bytes), the Adler-32 of the uncompressed bytes, the chunk CRC and IEND. The IDAT
// length is unknown until the end, so its four bytes at offset 33 are patched last.
#include "output/png.h"

FILE* png_file = nullptr;
int png_width = 0, png_height = 0;
int png_row = 0, png_col = 0;
uint32_t png_crc = 0xffffffffu;
uint32_t png_adler = 1;
uint32_t png_crc_table[256];

static void put_be32(uint8_t* p, uint32_t v)
{
    p[0] = (uint8_t)(v >> 24);
    p[1] = (uint8_t)(v >> 16);
    p[2] = (uint8_t)(v >> 8);
    p[3] = (uint8_t)v;
}

// One byte of the IDAT chunk: into the file and the CRC, and into the Adler sums unless it is
// chunk type, zlib header or deflate framing. The sums are kept below 65521 with a single
// conditional subtraction each: a byte adds at most 255, so a + b never reaches 2 * 65521.
template <bool Adler> [[gnu::always_inline]] static inline void png_byte(uint8_t b)
{
    putc(b, png_file);
    png_crc = (png_crc >> 8) ^ png_crc_table[(png_crc ^ b) & 0xff];
    if constexpr (Adler) {
        uint32_t a = png_adler & 0xffff, s = png_adler >> 16;
        a += b;
        if (a > 0xfff0) a -= 0xfff1;
        s += a;
        if (s > 0xfff0) s -= 0xfff1;
        png_adler = (s << 16) | a;
    }
}

void png_open(const char* path, int width, int height)
{
    png_row = 0;
    png_col = 0;
    png_width = width;
    png_height = height;

    for (int n = 255; n >= 0; --n) {
        uint32_t c = (uint32_t)n;
        for (int k = 0; k < 8; ++k) c = (c & 1) ? (c >> 1) ^ 0xedb88320u : c >> 1;
        png_crc_table[n] = c;
    }

    // Bytes 0 to 36: signature, IHDR, and the IDAT length, which is patched when the last
    // pixel is in (zero until then).
    uint8_t head[37] = {0x89, 'P', 'N', 'G', 0x0d, 0x0a, 0x1a, 0x0a, 0, 0, 0, 13,
                        'I', 'H', 'D', 'R'};
    put_be32(head + 16, (uint32_t)width);
    put_be32(head + 20, (uint32_t)height);
    head[24] = 8;  // bit depth
    head[25] = 6;  // RGBA
    head[26] = 0;  // deflate
    head[27] = 0;  // filter method
    head[28] = 0;  // no interlace
    uint32_t crc = 0xffffffffu;
    for (int i = 12; i <= 28; ++i) crc = (crc >> 8) ^ png_crc_table[(crc ^ head[i]) & 0xff];
    put_be32(head + 29, ~crc);
    put_be32(head + 33, 0);

    // A path that can't be opened is not reported here; the pixels are then counted and
    // dropped, so that the caller's loop runs to its end as usual.
    png_file = fopen(path, "wb");
    if (!png_file) return;
    fwrite(head, 1, sizeof head, png_file);

    png_crc = 0xffffffffu;
    png_adler = 1;
    png_byte<false>('I');
    png_byte<false>('D');
    png_byte<false>('A');
    png_byte<false>('T');
    png_byte<false>(0x78);  // CMF: deflate, 32K window
    png_byte<false>(0x01);  // FLG: no dictionary, fastest; 0x7801 is a multiple of 31
}

// The last pixel: Adler-32, chunk CRC and IEND, then the IDAT length = file size minus the 57
// bytes that are not IDAT data (33 before the chunk, its length, type and CRC, 12 of IEND).
static void png_finish()
{
    uint32_t adler = png_adler;
    png_byte<false>((uint8_t)(adler >> 24));
    png_byte<false>((uint8_t)(adler >> 16));
    png_byte<false>((uint8_t)(adler >> 8));
    png_byte<false>((uint8_t)adler);

    uint8_t tail[16] = {0, 0, 0, 0, 0, 0, 0, 0, 'I', 'E', 'N', 'D', 0xae, 0x42, 0x60, 0x82};
    put_be32(tail, ~png_crc);
    fwrite(tail, 1, sizeof tail, png_file);

    long size = ftell(png_file);
    uint8_t length[4];
    put_be32(length, (uint32_t)(size - 57));
    fseek(png_file, 33, SEEK_SET);
    fwrite(length, 1, sizeof length, png_file);
    fclose(png_file);
    png_file = nullptr;
}

void png_put_pixel(uint32_t color)
{
    if (png_file) {
        if (png_col == 0) {
            png_byte<false>(png_row == png_height - 1 ? 1 : 0);  // BFINAL, BTYPE 0 (stored)
            uint32_t len = (uint32_t)png_width * 4 + 1;
            uint32_t nlen = ~len & 0xffff;
            png_byte<false>((uint8_t)len);
            png_byte<false>((uint8_t)(len >> 8));
            png_byte<false>((uint8_t)nlen);
            png_byte<false>((uint8_t)(nlen >> 8));
            png_byte<true>(0);  // filter type none
        }
        png_byte<true>((uint8_t)(color >> 16));
        png_byte<true>((uint8_t)(color >> 8));
        png_byte<true>((uint8_t)color);
        png_byte<true>(0xff);
    }
    png_col += 1;
    if (png_col >= png_width) {
        png_col = 0;
        png_row += 1;
    }
    if (png_row >= png_height && png_file) png_finish();
}
