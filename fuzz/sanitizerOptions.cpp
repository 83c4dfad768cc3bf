// The address sanitizer's options in all targets.
//
// Stacks of allocations are not kept, and freed memory is kept for less long, because both took a good part of the time. To
// see the stacks, replay an input with ASAN_OPTIONS=malloc_context_size=30.
extern "C" const char* __asan_default_options();

const char* __asan_default_options() {
    return "malloc_context_size=0:quarantine_size_mb=1:thread_local_quarantine_size_kb=64";
}
