// seam_null_display.cpp — the window doors of seam.h for programs without a window
// (tavok-render, tests, benchmarks). There is no input, the clock is null_ticks, which tests
// may set, a flip shows nothing, and the occlusion worker runs on a std::thread, which a test
// may hold back (null_hold_worker).
#include <chrono>
#include <thread>

#include "core/core.h"
#include "core/seam.h"
#include "core/headless/seam_null.h"

std::atomic<unsigned> null_ticks{0};
std::atomic<int> null_hold_worker{0};

void input_pump() {}
unsigned ticks_ms() { return null_ticks; }
void delay_ms(unsigned ms) { null_ticks += ms; }
void flip_display() {}
void wait_for_input(unsigned ms) { null_ticks += ms; }
void close_display() {}
void release_pointer() {}

void restore_window_size()
{
    alloc_frame_buffers(window_width, window_height * 4 / 5, window_height);
    compute_view_constants();
    refresh = 1;
}

// A thread and its gate: a thread started while null_hold_worker is set waits at its gate
// until wait_thread opens it.
struct NullThread {
    std::atomic<int> gate;
    std::thread thread;
};

WorkerThread* start_thread(int (*body)(void*))
{
    NullThread* t = new NullThread;
    t->gate = null_hold_worker.load();
    t->thread = std::thread([t, body] {
        while (t->gate.load()) std::this_thread::sleep_for(std::chrono::microseconds(200));
        body(nullptr);
    });
    return reinterpret_cast<WorkerThread*>(t);
}

void wait_thread(WorkerThread* thread)
{
    if (!thread) return;
    NullThread* t = reinterpret_cast<NullThread*>(thread);
    t->gate = 0;
    t->thread.join();
    delete t;
}
