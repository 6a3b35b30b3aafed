// Per-track work spread over a pool of threads. Tracks are independent: each
// index is handled by exactly one worker, which writes only that track's own
// slot, so the result is the same for any number of workers. Callers that
// gather per-track results keep them in per-track slots and combine them in
// track order afterwards.
#pragma once

namespace trackpool {

// The workers used for count tracks: `workers` above 0 asks for that many, 0
// (the default everywhere) for one per core; never more than count, at least 1.
int WorkersFor(int workers, int count);

// Calls work(context, i) for every i in [0, count), spread over
// WorkersFor(workers, count) threads (the calling thread is one of them).
// Returns when every call has returned. With one worker the calls run in order
// on the calling thread.
void Run(int count, int workers, void (*work)(void* context, int i), void* context);

// The same for any callable f(i).
template <class F>
void ForEach(int count, int workers, F&& f) {
    Run(
        count, workers, [](void* c, int i) { (*static_cast<F*>(c))(i); },
        const_cast<void*>(static_cast<const void*>(&f)));
}

}  // namespace trackpool
