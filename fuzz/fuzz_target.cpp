// One libFuzzer target; ZEBFUZZ_NAME picks its entry from fuzz_entries.h.
#include <cstring>

#include "fuzz_entries.h"

namespace {

void (*Lookup())(const uint8_t*, size_t) {
    for (const zebfuzz::Entry& e : zebfuzz::kEntries)
        if (std::strcmp(e.name, ZEBFUZZ_NAME) == 0) return e.run;
    std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static void (*const run)(const uint8_t*, size_t) = Lookup();
    run(data, size);
    return 0;
}
