// image_file.cpp — the two ways an image leaves the program as a file: the file name rule that
// "Take Screenshot" and "Render to File" share, and writing a block of pixels as a PNG.
//
// Called by the panel's two image handlers and by render to file (src/app). Writes the file
// and the log lines of the rule; lowers the case of the last four characters of the name it is
// given (the caller's text, not the path it gets back). Touches no setting.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/core.h"
#include "output/png.h"

char* screenshot_path(char* name)
{
    size_t n = strlen(name);
    char* path = (char*)malloc(n + 5);
    if (!path) clean_up_and_exit(0, "out of mem - filesaving");
    memcpy(path, name, n + 1);
    if (n < 6) {
        // Short names get the ending whatever they are: "x.png" becomes "x.png.png".
        puts("adding <.png> to filename!");
        strcat(path, ".png");
    } else {
        char* tail = name + n - 4;
        printf("\t%s\n", tail);
        for (int i = 0; i < 4; ++i)
            if (tail[i] >= 'A' && tail[i] <= 'Z') tail[i] = (char)(tail[i] - 'A' + 'a');
        if (strcmp(tail, ".png") != 0) {
            puts("\tadding <.png> to filename!");
            strcat(path, ".png");
        } else {
            puts("\tit's a <.png>");
        }
    }
    printf("saving to file %s\n", path);
    return path;
}

void png_write_image(const char* path, const uint32_t* pixels, int width, int height)
{
    png_open(path, width, height);
    for (size_t i = 0, count = (size_t)width * height; i < count; ++i) png_put_pixel(pixels[i]);
}
