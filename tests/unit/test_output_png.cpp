// The PNG writer: exact bytes of the framing, the file size, the patched IDAT length, and
// decoding with an independent decoder (zlib's inflate and crc32, used here only) back to the
// exact pixels.
#include <gtest/gtest.h>
#include <zlib.h>

#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "helpers.h"
#include "png_helpers.h"
#include "output/png.h"

static std::vector<uint8_t> write_png(const std::string& name, int w, int h,
                                      const std::vector<uint32_t>& pixels)
{
    std::string path = temp_path(name);
    png_open(path.c_str(), w, h);
    for (uint32_t p : pixels) png_put_pixel(p);
    std::vector<uint8_t> bytes = read_file(path);
    remove(path.c_str());
    return bytes;
}

// 0x00RRGGBB with alpha 255 appended, as the file must hold it.
static uint32_t expected_rgba(uint32_t color) { return (color & 0xffffff) << 8 | 0xff; }

TEST(PngWriter, CrcTableIsTheStandardOne)
{
    png_open("/dev/null", 1, 1);
    png_put_pixel(0);
    const z_crc_t* table = get_crc_table();
    for (int n = 0; n < 256; ++n) EXPECT_EQ(png_crc_table[n], (uint32_t)table[n]) << n;
}

TEST(PngWriter, OneByOneIsOneFinalBlockOfFiveBytes)
{
    std::vector<uint8_t> b = write_png("1x1.png", 1, 1, {0x00123456});
    ASSERT_EQ(b.size(), 73u);  // 63 + 1 * (4 + 6)
    EXPECT_EQ(b[41], 0x78);
    EXPECT_EQ(b[42], 0x01);
    EXPECT_EQ(b[43], 1);     // BFINAL 1, BTYPE 0
    EXPECT_EQ(b[44], 5);     // LEN 5, little-endian
    EXPECT_EQ(b[45], 0);
    EXPECT_EQ(b[46], 0xfa);  // NLEN 0xfffa
    EXPECT_EQ(b[47], 0xff);
    EXPECT_EQ(b[48], 0);     // filter none
    EXPECT_EQ(b[49], 0x12);
    EXPECT_EQ(b[50], 0x34);
    EXPECT_EQ(b[51], 0x56);
    EXPECT_EQ(b[52], 0xff);
    // Adler-32 of 00 12 34 56 ff, by hand: a = 1, 1, 0x13, 0x47, 0x9d, 0x19c;
    // b = 1, 0x14, 0x5b, 0xf8, 0x294.
    EXPECT_EQ(be32(b, 53), 0x0294019cu);
    EXPECT_EQ(be32(b, 33), 2u + 10u + 4u);  // zlib header, one row block, Adler
    static const uint8_t iend[12] = {0, 0, 0, 0, 'I', 'E', 'N', 'D', 0xae, 0x42, 0x60, 0x82};
    EXPECT_EQ(memcmp(b.data() + 61, iend, 12), 0);
}

TEST(PngWriter, HeaderBytes)
{
    std::vector<uint8_t> b = write_png("hdr.png", 259, 3, std::vector<uint32_t>(259 * 3, 0x0));
    static const uint8_t start[16] = {0x89, 'P', 'N', 'G', 0x0d, 0x0a, 0x1a, 0x0a,
                                      0, 0, 0, 13, 'I', 'H', 'D', 'R'};
    ASSERT_GE(b.size(), 43u);
    EXPECT_EQ(memcmp(b.data(), start, 16), 0);
    EXPECT_EQ(be32(b, 16), 259u);
    EXPECT_EQ(be32(b, 20), 3u);
    EXPECT_EQ(b[24], 8);
    EXPECT_EQ(b[25], 6);
    EXPECT_EQ(b[26], 0);
    EXPECT_EQ(b[27], 0);
    EXPECT_EQ(b[28], 0);
    EXPECT_EQ(be32(b, 29), (uint32_t)crc32(crc32(0L, Z_NULL, 0), b.data() + 12, 17));
    EXPECT_EQ(memcmp(b.data() + 37, "IDAT", 4), 0);
}

TEST(PngWriter, HeightTwoHasBlockBytesZeroThenOne)
{
    const int w = 3;
    std::vector<uint8_t> b = write_png("h2.png", w, 2, std::vector<uint32_t>(w * 2, 0x010203));
    ASSERT_EQ(b.size(), 63u + 2 * (4 * w + 6));
    size_t block = 4 * w + 6;
    EXPECT_EQ(b[43], 0);
    EXPECT_EQ(b[43 + block], 1);
    for (size_t row = 0; row < 2; ++row) {
        EXPECT_EQ(b[44 + row * block], 13);  // LEN = 4 * 3 + 1
        EXPECT_EQ(b[45 + row * block], 0);
        EXPECT_EQ(b[46 + row * block], 0xf2);
        EXPECT_EQ(b[47 + row * block], 0xff);
    }
}

TEST(PngWriter, OnlyTheLastRowIsFinal)
{
    const int w = 5, h = 7;
    std::vector<uint8_t> b = write_png("final.png", w, h, std::vector<uint32_t>(w * h, 0));
    ASSERT_EQ(b.size(), 63u + h * (4 * w + 6));
    for (int row = 0; row < h; ++row)
        EXPECT_EQ(b[43 + row * (4 * w + 6)], row == h - 1 ? 1 : 0) << row;
}

TEST(PngWriter, FileSizeFollowsTheFormula)
{
    EXPECT_EQ(png_file_size(1024, 1024), 4200511u);
    const int sizes[][2] = {{1, 1}, {2, 1}, {1, 2}, {17, 9}, {1024, 1024}, {16383, 1}};
    for (auto& s : sizes) {
        std::string path = temp_path("size.png");
        png_open(path.c_str(), s[0], s[1]);
        for (long i = 0; i < (long)s[0] * s[1]; ++i) png_put_pixel((uint32_t)i * 2654435761u);
        std::vector<uint8_t> b = read_file(path);
        remove(path.c_str());
        EXPECT_EQ(b.size(), 63 + (uint64_t)s[1] * (4 * (uint64_t)s[0] + 6)) << s[0] << "x" << s[1];
        ASSERT_GE(b.size(), 37u);
        EXPECT_EQ(be32(b, 33), b.size() - 57) << s[0] << "x" << s[1];
    }
}

TEST(PngWriter, WidestRowFitsOneBlock)
{
    // 4 * 16383 + 1 = 65533: the largest LEN a row may have.
    std::string path = temp_path("wide.png");
    png_open(path.c_str(), 16383, 1);
    for (int i = 0; i < 16383; ++i) png_put_pixel(0xffffffff);
    std::vector<uint8_t> b = read_file(path);
    remove(path.c_str());
    ASSERT_EQ(b.size(), 63u + 4 * 16383 + 6);
    EXPECT_EQ(b[44] | b[45] << 8, 65533);
    EXPECT_EQ(b[46] | b[47] << 8, 65533 ^ 0xffff);
    int w = 0, h = 0;
    std::vector<uint32_t> rgba;
    std::string why;
    ASSERT_TRUE(decode_png(b, &w, &h, &rgba, &why)) << why;
    for (uint32_t p : rgba) ASSERT_EQ(p, 0xffffffffu);
}

TEST(PngWriter, IdatLengthIsRightOnlyAfterTheLastPixel)
{
    const int w = 4, h = 3;
    std::string path = temp_path("len.png");
    png_open(path.c_str(), w, h);
    for (int i = 0; i < w * h - 1; ++i) png_put_pixel(0x808080);
    ASSERT_NE(png_file, nullptr);
    fflush(png_file);
    std::vector<uint8_t> partial = read_file(path);
    ASSERT_GE(partial.size(), 37u);
    uint32_t real = 2 + h * (4 * w + 6) + 4;
    EXPECT_NE(be32(partial, 33), real);
    png_put_pixel(0x808080);
    EXPECT_EQ(png_file, nullptr);  // closed by the last pixel
    std::vector<uint8_t> b = read_file(path);
    remove(path.c_str());
    EXPECT_EQ(be32(b, 33), real);
}

TEST(PngWriter, AlphaIsAlways255AndTheTopByteNeverGetsIn)
{
    // Every top byte value, on pixels whose colour bytes are all different from it.
    const int w = 16, h = 16;
    std::vector<uint32_t> pixels;
    for (int i = 0; i < w * h; ++i) {
        uint32_t top = (uint32_t)i;
        uint32_t c = (top + 1) & 0xff;
        if (c == 0xff) c = 0x10;
        pixels.push_back(top << 24 | c << 16 | c << 8 | c);
    }
    std::vector<uint8_t> b = write_png("alpha.png", w, h, pixels);
    ASSERT_EQ(b.size(), 63u + h * (4 * w + 6));
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            size_t at = 43 + y * (4 * w + 6) + 6 + 4 * x;
            uint32_t p = pixels[y * w + x];
            EXPECT_EQ(b[at], (p >> 16) & 0xff);
            EXPECT_EQ(b[at + 1], (p >> 8) & 0xff);
            EXPECT_EQ(b[at + 2], p & 0xff);
            EXPECT_EQ(b[at + 3], 0xff);
        }
    int dw, dh;
    std::vector<uint32_t> rgba;
    std::string why;
    ASSERT_TRUE(decode_png(b, &dw, &dh, &rgba, &why)) << why;
    for (int i = 0; i < w * h; ++i) EXPECT_EQ(rgba[i], expected_rgba(pixels[i]));
}

TEST(PngWriter, DecodesToTheExactPixels)
{
    std::mt19937 random(7);
    const int sizes[][2] = {{1, 1}, {7, 5}, {13, 1}, {1, 9}, {301, 211}};
    for (auto& s : sizes) {
        int w = s[0], h = s[1];
        std::vector<uint32_t> pixels(w * h);
        for (auto& p : pixels) p = random();
        std::vector<uint8_t> b = write_png("decode.png", w, h, pixels);
        int dw = 0, dh = 0;
        std::vector<uint32_t> rgba;
        std::string why;
        ASSERT_TRUE(decode_png(b, &dw, &dh, &rgba, &why)) << why << " at " << w << "x" << h;
        EXPECT_EQ(dw, w);
        EXPECT_EQ(dh, h);
        for (int i = 0; i < w * h; ++i) ASSERT_EQ(rgba[i], expected_rgba(pixels[i])) << i;
    }
}

TEST(PngWriter, AdlerSumsWrapOnWhiteImages)
{
    // All bytes 0xff drive both sums through their modulo many times per row.
    const int w = 1000, h = 40;
    std::vector<uint8_t> b = write_png("white.png", w, h, std::vector<uint32_t>(w * h, 0xffffff));
    int dw, dh;
    std::vector<uint32_t> rgba;
    std::string why;
    ASSERT_TRUE(decode_png(b, &dw, &dh, &rgba, &why)) << why;
    std::vector<uint8_t> raw;
    for (int y = 0; y < h; ++y) {
        raw.push_back(0);
        raw.insert(raw.end(), 4 * w, 0xff);
    }
    size_t end = b.size() - 12 - 4;  // Adler is the last four bytes before the CRC and IEND
    EXPECT_EQ(be32(b, end - 4), (uint32_t)adler32(adler32(0L, Z_NULL, 0), raw.data(), raw.size()));
}

TEST(PngWriter, TwoFilesInARowAreIndependent)
{
    std::vector<uint8_t> first = write_png("a.png", 3, 3, std::vector<uint32_t>(9, 0x00ff00));
    std::vector<uint8_t> second = write_png("b.png", 2, 5, std::vector<uint32_t>(10, 0x0000ff));
    int w, h;
    std::vector<uint32_t> rgba;
    std::string why;
    ASSERT_TRUE(decode_png(first, &w, &h, &rgba, &why)) << why;
    EXPECT_EQ(rgba[8], 0x00ff00ffu);
    ASSERT_TRUE(decode_png(second, &w, &h, &rgba, &why)) << why;
    EXPECT_EQ(w, 2);
    EXPECT_EQ(h, 5);
    EXPECT_EQ(rgba[9], 0x0000ffffu);
}

TEST(PngWriter, UnopenablePathWritesNothingAndDoesNotCrash)
{
    std::string path = temp_path("no-such-dir/x.png");
    png_open(path.c_str(), 3, 2);
    EXPECT_EQ(png_file, nullptr);
    for (int i = 0; i < 6; ++i) png_put_pixel(0x123456);
    EXPECT_EQ(png_row, 2);
    EXPECT_TRUE(read_file(path).empty());
}
