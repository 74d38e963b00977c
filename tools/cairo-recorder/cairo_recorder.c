/* Preload library: writes every cairo call of the program, with its arguments and result, as one
 * JSON object a line to the file that CAIRO_RECORDER_LOG names, and passes the call on.
 *
 * CAIRO_RECORDER_TALLER is added to every height of a text that cairo measures: cairo itself gives
 * whole pixels, with which the rounding of a baseline would not show.
 *
 * Objects are addresses in hexadecimal. cairo's calls of itself are not seen. A call that is not in
 * here is not recorded: whoever reads the record looks at the program's symbols, too. */
#define _GNU_SOURCE
#include <cairo.h>

#include <dlfcn.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

enum { LINE_BYTES = 65536 };

static void* next(const char* name) {
    void* function = dlsym(RTLD_NEXT, name);
    if (function == NULL) {
        fprintf(stderr, "cairo-recorder: there is no %s\n", name);
        abort();
    }
    return function;
}

static int record_file(void) {
    static int file = -1;
    if (file < 0) {
        const char* path = getenv("CAIRO_RECORDER_LOG");
        if (path == NULL ||
            (file = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666)) < 0) {
            fprintf(stderr, "cairo-recorder: CAIRO_RECORDER_LOG must name a file to write\n");
            abort();
        }
    }
    return file;
}

/* Appends a JSON text, cut between two characters where there is no room for all of it; what is not
 * ASCII stays as it is. */
static size_t put_text(char* line, size_t length, const char* text) {
    line[length++] = '"';
    for (; *text != '\0' && length < LINE_BYTES - 16; ++text) {
        const unsigned char byte = (unsigned char)*text;
        if (byte < 0x20 || byte == '"' || byte == '\\')
            length += (size_t)sprintf(line + length, "\\u%04x", byte);
        else
            line[length++] = *text;
    }
    while (((unsigned char)*text & 0xC0) == 0x80) {
        --length;
        --text;
    }
    line[length++] = '"';
    return length;
}

/* Kinds of the arguments that follow: p object, d double, i integer, s text; the last is the
 * result where there is one. */
static void record(const char* call, const char* kinds, ...) {
    static __thread char line[LINE_BYTES];
    size_t length = (size_t)sprintf(line, "{\"call\": \"%s\", \"thread\": %d, \"arguments\": [",
                                    call, (int)gettid());
    va_list values;
    va_start(values, kinds);
    for (const char* kind = kinds; *kind != '\0'; ++kind) {
        if (kind != kinds)
            length += (size_t)sprintf(line + length, ", ");
        if (*kind == 'p')
            length += (size_t)sprintf(line + length, "\"%p\"", va_arg(values, void*));
        else if (*kind == 'd')
            length += (size_t)sprintf(line + length, "%.17g", va_arg(values, double));
        else if (*kind == 'i')
            length += (size_t)sprintf(line + length, "%d", va_arg(values, int));
        else
            length = put_text(line, length, va_arg(values, const char*));
    }
    va_end(values);
    length += (size_t)sprintf(line + length, "]}\n");
    if (write(record_file(), line, length) != (ssize_t)length)
        abort();
}

/* RECORD(name, (parameters), (arguments to pass on), kinds, arguments to record) */
#define RECORD(name, parameters, arguments, ...)                                                   \
    void name parameters {                                                                         \
        record(#name, __VA_ARGS__);                                                                \
        ((void(*) parameters)next(#name)) arguments;                                               \
    }
#define RECORD_RESULT(type, name, parameters, arguments, ...)                                      \
    type name parameters {                                                                         \
        type result = ((type(*) parameters)next(#name))arguments;                                  \
        record(#name, __VA_ARGS__, result);                                                        \
        return result;                                                                             \
    }

RECORD_RESULT(int, cairo_format_stride_for_width, (cairo_format_t format, int width),
              (format, width), "iii", (int)format, width)
RECORD_RESULT(cairo_surface_t*, cairo_image_surface_create_for_data,
              (unsigned char* data, cairo_format_t format, int width, int height, int stride),
              (data, format, width, height, stride), "piiiip", (void*)data, (int)format, width,
              height, stride)
RECORD_RESULT(cairo_t*, cairo_create, (cairo_surface_t * target), (target), "pp", (void*)target)
RECORD(cairo_destroy, (cairo_t * cr), (cr), "p", (void*)cr)
RECORD_RESULT(cairo_status_t, cairo_status, (cairo_t * cr), (cr), "pi", (void*)cr)
RECORD_RESULT(const char*, cairo_status_to_string, (cairo_status_t status), (status), "is",
              (int)status)
RECORD_RESULT(cairo_status_t, cairo_surface_status, (cairo_surface_t * surface), (surface), "pi",
              (void*)surface)
RECORD(cairo_surface_destroy, (cairo_surface_t * surface), (surface), "p", (void*)surface)

RECORD(cairo_set_source_rgb, (cairo_t * cr, double r, double g, double b), (cr, r, g, b), "pddd",
       (void*)cr, r, g, b)
RECORD(cairo_set_source_rgba, (cairo_t * cr, double r, double g, double b, double a),
       (cr, r, g, b, a), "pdddd", (void*)cr, r, g, b, a)
RECORD(cairo_set_line_width, (cairo_t * cr, double width), (cr, width), "pd", (void*)cr, width)
RECORD(cairo_move_to, (cairo_t * cr, double x, double y), (cr, x, y), "pdd", (void*)cr, x, y)
RECORD(cairo_line_to, (cairo_t * cr, double x, double y), (cr, x, y), "pdd", (void*)cr, x, y)
RECORD(cairo_arc, (cairo_t * cr, double x, double y, double radius, double from, double to),
       (cr, x, y, radius, from, to), "pddddd", (void*)cr, x, y, radius, from, to)
RECORD(cairo_paint, (cairo_t * cr), (cr), "p", (void*)cr)
RECORD(cairo_stroke, (cairo_t * cr), (cr), "p", (void*)cr)

RECORD(cairo_select_font_face,
       (cairo_t * cr, const char* family, cairo_font_slant_t slant, cairo_font_weight_t weight),
       (cr, family, slant, weight), "psii", (void*)cr, family, (int)slant, (int)weight)
RECORD(cairo_set_font_size, (cairo_t * cr, double size), (cr, size), "pd", (void*)cr, size)
RECORD(cairo_show_text, (cairo_t * cr, const char* text), (cr, text), "ps", (void*)cr, text)

void cairo_text_extents(cairo_t* cr, const char* text, cairo_text_extents_t* extents) {
    typedef void function(cairo_t*, const char*, cairo_text_extents_t*);
    ((function*)next("cairo_text_extents"))(cr, text, extents);
    const char* taller = getenv("CAIRO_RECORDER_TALLER");
    if (taller != NULL)
        extents->height += strtod(taller, NULL);
    record("cairo_text_extents", "psd", (void*)cr, text, extents->height);
}
