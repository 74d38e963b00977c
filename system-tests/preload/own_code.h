/* Tells who calls: the program, and the C++ library on its behalf; or cairo, the virtual device and
 * others. A preload library includes this once. */
#pragma once

#include <link.h>
#include <stdint.h>
#include <string.h>

static uintptr_t own_code[2][2]; /* first address and end of the program, of the C++ library */

static int note_object(struct dl_phdr_info* object, size_t size, void* data) {
    (void)size;
    (void)data;
    const int library = strstr(object->dlpi_name, "libstdc++") != NULL;
    if (object->dlpi_name[0] != '\0' && !library)
        return 0;
    uintptr_t* range = own_code[library ? 1 : 0];
    if (range[1] != 0)
        return 0; /* the kernel's object has no name, either, and comes after the program */
    range[0] = UINTPTR_MAX;
    for (int i = 0; i < object->dlpi_phnum; ++i) {
        const ElfW(Phdr)* part = &object->dlpi_phdr[i];
        if (part->p_type != PT_LOAD)
            continue;
        const uintptr_t begin = object->dlpi_addr + part->p_vaddr;
        if (begin < range[0])
            range[0] = begin;
        if (begin + part->p_memsz > range[1])
            range[1] = begin + part->p_memsz;
    }
    return 0;
}

/* To be called by the library's constructor; no code is the program's own before that. */
static void find_own_code(void) {
    dl_iterate_phdr(note_object, NULL);
}

static int is_own_code(const void* caller) {
    const uintptr_t at = (uintptr_t)caller;
    return (at >= own_code[0][0] && at < own_code[0][1]) ||
           (at >= own_code[1][0] && at < own_code[1][1]);
}
