/* Preload library: FreeType cannot draw the first glyph that it is asked for, though it has read
 * the glyph's font. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stddef.h>

enum { OUT_OF_MEMORY = 0x40 }; /* FreeType's number */

int FT_Render_Glyph(void* glyph, int mode) {
    static int (*real)(void*, int);
    if (real == NULL) {
        real = (int (*)(void*, int))dlsym(RTLD_NEXT, "FT_Render_Glyph");
        return OUT_OF_MEMORY;
    }
    return real(glyph, mode);
}
