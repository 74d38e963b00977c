#pragma once

#include <glib.h>

#include <cstdint>
#include <thread>

/// Posts so many messages from a thread of its own to a GLib main loop, and runs them all.
class GlibLoop {
public:
    static void postAndRun(std::int64_t count) {
        GMainContext* const context = g_main_context_new();
        GlibLoop loop{g_main_loop_new(context, FALSE), count};
        std::thread poster([&] {
            for (std::int64_t i = 0; i < count; ++i) {
                GSource* const source = g_idle_source_new();
                g_source_set_priority(source, G_PRIORITY_DEFAULT);
                g_source_set_callback(source, see, &loop, nullptr);
                g_source_attach(source, context);
                g_source_unref(source);
            }
        });
        g_main_loop_run(loop.m_loop);
        poster.join();
        g_main_loop_unref(loop.m_loop);
        g_main_context_unref(context);
    }

private:
    GlibLoop(GMainLoop* loop, std::int64_t count) : m_loop(loop), m_left(count) {}

    static gboolean see(gpointer data) {
        auto* const loop = static_cast<GlibLoop*>(data);
        if (--loop->m_left == 0) {
            g_main_loop_quit(loop->m_loop);
        }
        return G_SOURCE_REMOVE;
    }

    GMainLoop* m_loop;
    std::int64_t m_left;
};
